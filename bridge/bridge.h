// The bridge: the service on one side, the broker on the other, and one loop.
//
// The loop sleeps until a file is replaced, the broker has something to say, or a time has come;
// with nothing to do that is the broker's keep-alive alone. Connecting is the one step that may
// take long; what happens meanwhile waits in the kernel, and in the files.
#pragma once

#include <veltrancord/client.h>

#include <csignal>
#include <string>
#include <string_view>

#include "broker_link.h"
#include "change_desk.h"
#include "configuration.h"
#include "directory_watch.h"
#include "event_queue.h"
#include "log_follower.h"
#include "reporter.h"

namespace veltrancord::bridge {

class bridge final : private broker_listener {
  public:
    // Borrows the configuration for its life. `where`: how trials are guarded.
    bridge(const configuration& settings, const trial::setup& where);

    // Runs until `stop` is set, by a handler of a signal that is blocked but in the loop's wait.
    // Return: false after one line on standard error where it cannot go on.
    [[nodiscard]] bool run(const volatile std::sig_atomic_t& stop);

  private:
    void on_connected() override;
    void on_message(std::string_view name, std::string_view payload) override;
    void on_acknowledged(int message) override;

    [[nodiscard]] bool begin();
    void keep_connection();
    void lose_connection();
    void wait();
    [[nodiscard]] int waiting_time() const;
    void take_changes();
    void read_log();
    void publish_waiting();
    void publish_events();
    void publish_results();
    void publish_status();
    [[nodiscard]] std::string topic(std::string_view rest) const;
    [[nodiscard]] std::string status_text() const;
    [[nodiscard]] bool takes_changes() const { return journal_sound_ && settings_.may_write(); }

    const configuration& settings_;
    veltrancord_client client_ = VELTRANCORD_CLIENT_INIT;
    directory_watch watch_;
    int documents_ = -1;  // directories of the watch
    int log_directory_ = -1;
    std::string log_name_;
    log_follower follower_;
    event_queue events_;
    reporter reports_;
    trial::setup where_;
    change_desk desk_;
    broker_link link_;
    bool journal_sound_ = false;
    bool watching_ = true;
    bool was_trying_ = false;
    bool clock_was_set_ = false;
    int64_t next_attempt_ = 0;  // milliseconds of the kernel's clock
    int64_t opened_ = 0;        // when the connection was
    int64_t next_look_ = 0;     // at the library's timers
    int failures_ = 0;          // since the last connection
};

}  // namespace veltrancord::bridge
