// What one worker's server thread works with.
#pragma once

#include <array>
#include <span>

#include "handler/handler.h"
#include "leaf/owned_fd.h"
#include "server/event_loop.h"
#include "service/commands.h"
#include "update/program_queue.h"
#include "update/saving.h"

namespace veltrancord {

// Whether to make a call that may find nothing: after one that did, some are passed over.
class guess {
  public:
    explicit guess(int passed_over) noexcept : passed_over_(passed_over) {}

    [[nodiscard]] bool worth_a_try() noexcept {
        if (left_ == 0) {
            return true;
        }
        --left_;
        return false;
    }
    void was_wrong() noexcept { left_ = passed_over_; }

  private:
    int passed_over_;
    int left_ = 0;
};

// Server thread only. Lives longer than every connection.
struct request_server {
    // `now` is the clock of the loop's timers.
    explicit request_server(loop_time (*now)() = wall_clock_now) : loop(now) {}

    event_loop loop;
    listener_record listener;
    std::span<const command_row> commands = command_table();

    // What is done after every command that reached a handler, once its reply is queued and before
    // it is sent, in this order: a started program finds what it is told of in the file.
    std::array<void (*)(), 2> follow_ups = {save_changed_documents, run_dispatch_queue};

    loop_event* accept_event = nullptr;
    loop_event* accept_pause = nullptr;
    owned_fd reserve;               // given up to be able to turn a newcomer away
    guess early_request{7};         // a newcomer has sent its request already
    guess further_newcomer{31};     // behind such a newcomer waits another one
    bool refusal_reported = false;  // since the last newcomer that was taken
};

}  // namespace veltrancord
