// How requests are served, and why so
//
// One thread serves everything. A request changes or reads one document set, takes microseconds,
// and ends before the next begins: so the store, the lists of permits and sessions and the event
// log need no locks, and no client ever sees half of another's write. The price is that a slow
// handler keeps all others waiting, and so does a client that announces a payload and sends it
// slowly: the rest of a request is waited for within the call that has begun to read it.
//
// The loop stands on poll. select cannot name a descriptor above 1023, and a device's programs do
// leave more than a thousand connections behind when one of them runs wild; a kernel-side set of
// descriptors (epoll) was measured to be slower at the handful of short-lived connections that
// are usual here, since each of them costs a call to enter the set and nothing to leave it only at
// the close. With poll there is no bound but the process's own limit on open descriptors, and that
// one the listener deals with.
//
// One pass:
//
//   1. one sample of the clock; the time that each active timer has left; the least of them is how
//      long the pass may wait, and each active timer is armed
//   2. each active descriptor event gets a place in the array for poll, and is armed
//   3. poll
//   4. a second sample; armed timers that have run out fire
//   5. armed descriptor events whose descriptor is ready fire
//   6. what was marked deleted is freed
//
// All timers of one step see the same moment, so their order in the list cannot decide which of two
// equal ones is due. Events added by a callback stand in front of the lists and are not armed, so
// they take part from the next pass on. A callback that fails has already dealt with it: the loop
// knows no errors. A poll that fails is no event; the pass goes on with the timers.
//
// Deleting only marks. A callback may delete any event, its own and those that this very pass is
// still going to visit included (a connection that is released takes its timer and both its
// descriptor events along), so nothing may be taken from a list while a pass walks through it. The
// mark disarms the event at once, and the end of the pass, where nothing walks, takes it away. This
// is also why a descriptor may be closed right after its event was removed: should the number be
// given out again in the same pass, the old event does not fire for it. Freed events wait in a list
// of spare ones, which grows to the largest number that ever was in use at a time and makes a
// request's events cost no allocation.
//
// Timers go by the wall clock, as everything does that clients and logs can see. When the clock is
// set, an idle connection lives shorter or longer, and a client whose connection went away connects
// again; no request in progress depends on a timer.
#include "server/event_loop.h"

#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

namespace veltrancord {

namespace {

constexpr int64_t due_below = 5;        // milliseconds; a timer this near has run out
constexpr int wait_without_end = -1;    // poll's word for no time-out
constexpr int failing_poll_pause = 10;  // milliseconds; a poll that keeps failing must not spin
constexpr int32_t microseconds = 1'000'000;  // of a second

loop_time later_by(const loop_time& from, int32_t milliseconds) {
    loop_time sum = from;
    sum.seconds += milliseconds / 1000;
    sum.microseconds += int64_t{milliseconds % 1000} * 1000;
    if (sum.microseconds >= microseconds) {
        sum.seconds += 1;
        sum.microseconds -= microseconds;
    }
    return sum;
}

}  // namespace

loop_time wall_clock_now() {
    timeval now = {};
    ::gettimeofday(&now, nullptr);
    return {now.tv_sec, now.tv_usec};
}

int64_t milliseconds_left(const loop_time& expiry, const loop_time& now) {
    const int64_t left = (expiry.seconds - now.seconds) * 1000 +
                         (expiry.microseconds - now.microseconds + 500) / 1000;
    return left < due_below ? 0 : left;
}

loop_event* event_loop::add(event_list& list, event_callback callback, void* argument) {
    try {
        if (spare_.empty()) {
            spare_.emplace_front();
        }
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    list.splice(list.begin(), spare_, spare_.begin());
    loop_event& event = list.front();
    event = loop_event{};
    event.flags = loop_event::active;
    event.callback = callback;
    event.argument = argument;
    return &event;
}

loop_event* event_loop::add_timer(int32_t interval, bool one_shot, event_callback callback,
                                  void* argument) {
    loop_event* const event = add(timers_, callback, argument);
    if (event != nullptr) {
        event->interval = interval;
        event->expiry = later_by(now_(), interval);
        event->flags |= one_shot ? loop_event::one_shot : 0U;
    }
    return event;
}

loop_event* event_loop::add_descriptor(int fd, watch_direction direction, event_callback callback,
                                       void* argument) {
    try {
        // Room for every event of the list is made here, where a failure can be told.
        if (watched_.capacity() <= descriptors_.size()) {
            watched_.reserve(descriptors_.size() * 2 + 16);
        }
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    loop_event* const event = add(descriptors_, callback, argument);
    if (event != nullptr) {
        event->fd = fd;
        event->direction = direction;
    }
    return event;
}

void event_loop::remove(loop_event*& event) {
    if (event != nullptr) {
        event->flags |= loop_event::deleted;
        event->flags &= ~(loop_event::active | loop_event::armed);
        any_deleted_ = true;
        event = nullptr;
    }
}

void event_loop::run() {
    while (!stopped_) {
        run_pass();
    }
}

void event_loop::run_pass() {
    const int wait = arm_timers();
    arm_descriptors();
    const int ready = ::poll(watched_.data(), watched_.size(), wait);
    if (ready < 0 && errno != EINTR) {
        ::poll(nullptr, 0, failing_poll_pause);
    }
    fire_timers();
    if (ready > 0) {
        fire_descriptors();
    }
    sweep();
}

// Return: how long poll may wait, in milliseconds.
int event_loop::arm_timers() {
    if (timers_.empty()) {
        return wait_without_end;
    }
    const loop_time now = now_();
    int64_t least = INT_MAX;
    bool any = false;
    for (loop_event& timer : timers_) {
        timer.flags &= ~loop_event::armed;
        if ((timer.flags & loop_event::active) != 0) {
            timer.flags |= loop_event::armed;
            least = std::min(least, milliseconds_left(timer.expiry, now));
            any = true;
        }
    }
    return any ? static_cast<int>(least) : wait_without_end;
}

void event_loop::arm_descriptors() {
    watched_.clear();
    for (loop_event& event : descriptors_) {
        event.flags &= ~loop_event::armed;
        if ((event.flags & loop_event::active) != 0) {
            event.flags |= loop_event::armed;
            event.slot = watched_.size();
            const short wanted = event.direction == watch_direction::read ? POLLIN : POLLOUT;
            watched_.push_back({event.fd, wanted, 0});
        }
    }
}

void event_loop::fire(loop_event& event) {
    if ((event.flags & loop_event::one_shot) != 0) {
        loop_event* fired = &event;
        remove(fired);
    }
    event.callback(event.argument);
}

void event_loop::fire_timers() {
    if (timers_.empty()) {
        return;
    }
    const loop_time now = now_();
    for (loop_event& timer : timers_) {
        if (stopped_) {
            return;
        }
        if ((timer.flags & loop_event::armed) == 0 || milliseconds_left(timer.expiry, now) > 0) {
            continue;
        }
        timer.expiry = later_by(timer.expiry, timer.interval);
        fire(timer);
    }
}

void event_loop::fire_descriptors() {
    for (loop_event& event : descriptors_) {
        if (stopped_) {
            return;
        }
        // Besides what was asked for, poll reports failures and hang-ups, which the callback finds
        // out about by its own call; left alone they would end every wait at once.
        if ((event.flags & loop_event::armed) != 0 && watched_[event.slot].revents != 0) {
            fire(event);
        }
    }
}

void event_loop::sweep() {
    if (any_deleted_) {
        sweep(timers_);
        sweep(descriptors_);
        any_deleted_ = false;
    }
}

void event_loop::sweep(event_list& list) {
    for (auto event = list.begin(); event != list.end();) {
        const auto next = std::next(event);
        if ((event->flags & loop_event::deleted) != 0) {
            spare_.splice(spare_.begin(), list, event);
        }
        event = next;
    }
}

}  // namespace veltrancord
