// An alarm that ends the wait for descriptors when a timer is due.
//
// poll takes a time-out, but the kernel then starts and cancels a timer in every single wait; a
// timer that is one of the descriptors is queued at and taken off again each time; and a wait with
// a signal mask of its own changes the mask twice. Each of these costs 3 to 5 % of
// a short request, though hardly any wait lasts until the time-out. This alarm stays set from one
// wait to the next, and is set anew only for an earlier expiry or after it has rung.
//
// It is a signal to the thread that waits. Calls other than waits are not disturbed by it: they are
// restarted. One that comes just before a wait begins would be missed, so it is repeated until a
// wait has been ended by it.
#pragma once

#include <time.h>

#include <cstdint>

#include "server/loop_time.h"

namespace veltrancord {

// Used by one thread only: the one that calls set() first.
class wait_alarm {
  public:
    wait_alarm() noexcept = default;
    wait_alarm(const wait_alarm&) = delete;
    wait_alarm& operator=(const wait_alarm&) = delete;
    ~wait_alarm();

    // Whether it rings at `expiry` or before.
    [[nodiscard]] bool rings_by(const loop_time& expiry) const noexcept {
        return set_ && !(expiry < rings_at_);
    }

    // Sets it for `expiry`, which is `milliseconds` from now, more than 0.
    //
    // Return: false when the system has no timer left.
    [[nodiscard]] bool set(const loop_time& expiry, int64_t milliseconds);

    // Stops it. To be called when a wait was interrupted, by whatever signal.
    void silence();

  private:
    enum class state { not_made, made, failed };

    [[nodiscard]] bool make();

    state state_ = state::not_made;
    timer_t timer_ = {};
    loop_time rings_at_;
    bool set_ = false;
};

}  // namespace veltrancord
