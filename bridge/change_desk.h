// Changes from outside: each is checked, tried, and kept only when its operator says so over a new
// connection.
//
// A change that is wanted lies on the broker and comes again with every connection. What is done
// about it is decided once, when its sequence number is above that of the last one, and noted
// (change_journal.h) before anything is written: refused, in conflict, expired, applied and rolled
// back are final, and to try once more an operator sends a higher number. Deciding anew each time
// was rejected: it goes from rolled back to tried and back with each start of the broker.
//
// It is written as a trial (trial/trial.h), whose guard gives back what nobody keeps, whatever
// becomes of the bridge. Then the connection to the broker is dropped and made anew, name lookup
// and all; only an answer that comes over the new one counts. So a change that cuts the device off,
// though the old connection goes on living, takes itself back.
//
// What waits: while the service does not answer, or the clock is not set, the newest change is held
// and looked at again by tick(). While a trial is under way another change is refused.
//
// Used by one thread; a call takes as long as its exchanges with the service.
#pragma once

#include <veltrancord/client.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "change_journal.h"
#include "change_plan.h"
#include "configuration.h"
#include "operator_message.h"
#include "trial/trial.h"

namespace veltrancord::bridge {

// Whether the clock was set: it is past the time when this was written.
[[nodiscard]] bool is_clock_set(std::time_t now);

class change_desk {
  public:
    // Borrows both for its life. `where`: how a trial is guarded.
    change_desk(veltrancord_client& client, const configuration& settings, trial::setup where);

    // Reads the journal, and gives back a trial that an earlier run of the bridge has left. Return:
    // false after one line on standard error where the journal is damaged: then no change is taken.
    [[nodiscard]] bool start();

    // What has come under the three topics, over the connection of that number, which rises with
    // each.
    void take_desired(std::string_view payload, uint64_t connection, std::time_t now);
    void take_preview(std::string_view payload, std::time_t now);
    void take_confirm(std::string_view payload, uint64_t connection, std::time_t now);

    // A connection is there: the last result is to be published with it, whatever the broker still
    // knows.
    void connected(uint64_t connection);

    // To be called now and then while has_work().
    void tick(uint64_t connection, std::time_t now);
    [[nodiscard]] bool has_work() const { return running_ != nullptr || !waiting_.empty(); }
    [[nodiscard]] bool is_trying() const { return running_ != nullptr; }

    // Whether the connection is to be dropped and made anew; tells it once.
    [[nodiscard]] bool takes_new_connection();

    // What is to be published as the result. `retained` stays with the broker; the others, answers
    // to what has changed nothing, do not take its place. Empty: nothing new.
    [[nodiscard]] std::string take_retained();
    [[nodiscard]] std::vector<std::string> take_answers();

  private:
    struct running_trial {
        std::string id;
        uint64_t sequence = 0;
        uint64_t connection = 0;  // over which the change came
        std::vector<std::string> removals;
        std::string differences;
        trial::ticket ticket;
    };
    // What has happened to the change of one message.
    struct outcome {
        change_state state = change_state::none;
        std::string reason;
        std::string differences;
        int64_t seconds = 0;  // left of a trial
    };

    [[nodiscard]] bool open(std::string_view topic, std::string_view payload, message_kind kind,
                            operator_message& message);
    [[nodiscard]] bool is_new(const operator_message& message);
    void act(const operator_message& message, uint64_t connection, std::time_t now);
    void begin(const operator_message& message, change_plan plan, uint64_t connection);
    void conclude(const operator_message& message, const outcome& how);
    void tell_again(const operator_message& message);
    void finish(trial::ending how);
    void retain(std::string text);
    void answer(const operator_message& message, const outcome& how);
    [[nodiscard]] static std::string result_text(const std::string& id, uint64_t sequence,
                                                 const outcome& how);

    veltrancord_client& client_;
    const configuration& settings_;
    trial::setup where_;
    change_journal journal_;
    bool sound_ = false;  // the journal
    std::unique_ptr<running_trial> running_;
    std::string waiting_;  // a change that could not be looked at yet
    std::string retained_;
    bool retained_due_ = false;
    std::vector<std::string> answers_;
    bool new_connection_ = false;
};

}  // namespace veltrancord::bridge
