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
//   1. each active timer is armed; the nearest of them decides how long the pass may wait
//   2. each active descriptor event gets a place in the array for poll, and is armed
//   3. poll
//   4. one sample of the clock; armed timers that have run out fire
//   5. armed descriptor events whose descriptor is ready fire
//   6. what was marked deleted is freed
//
// All timers of one pass see the same moment, so their order in the list cannot decide which of two
// equal ones is due. Events added by a callback stand in front of the lists and are not armed, so
// they take part from the next pass on. A callback that fails has already dealt with it: the loop
// knows no errors. A poll that fails is no event; the pass goes on with the timers.
//
// Deleting only marks. A callback may delete any event, its own and those that this very pass is
// still going to visit included (a connection that is released takes its timer and both its
// descriptor events along), so nothing may be taken from a list while a pass walks through it. The
// mark disarms the event at once, and the end of the pass, where nothing walks, takes it away. This
// is also why a descriptor may be closed right after its event was removed: should the number be
// given out again in the same pass, the old event does not fire for it. A freed event is not kept
// for the next one (a free list): that saved nothing that could be measured, and hid from the
// sanitizers what is used after its end.
//
// Waiting for a timer costs a pass nothing: an alarm that stays set ends the wait (wait_alarm.h).
//
// Timers go by the wall clock, as everything does that clients and logs can see. When it is set
// forward, an idle client is let go sooner, and connects again; no request in progress depends on a
// timer. When it is set back, all idle clients would stay for as long as the step, and keep others
// out: so each timer has its moment by the steady clock as well, and is due when either has come.
// The waits, and which timer is the nearest, go by the steady clock, which puts them in one order
// whatever becomes of the other.
#include "server/event_loop.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

namespace veltrancord {

namespace {

constexpr int wait_without_end = -1;    // poll's word for no time-out
constexpr int failing_poll_pause = 10;  // milliseconds; a poll that keeps failing must not spin

}  // namespace

loop_event* event_loop::add(event_list& list, event_callback callback, void* argument) {
    try {
        loop_event& event = list.emplace_front();
        event.flags = loop_event::active;
        event.callback = callback;
        event.argument = argument;
        return &event;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Room in the array for every event of the list is made when one is added, where a failure can be
// told.
bool event_loop::make_room() {
    if (places_.size() > descriptor_count_) {
        return true;
    }
    try {
        places_.resize(descriptor_count_ * 2 + 16);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

loop_event* event_loop::add_timer(int32_t interval, bool one_shot, event_callback callback,
                                  void* argument) {
    loop_event* const event = add(timers_, callback, argument);
    if (event != nullptr) {
        event->interval = interval;
        event->expiry = moment_later_by(now_(), interval);
        event->flags |= one_shot ? loop_event::one_shot : 0U;
    }
    return event;
}

loop_event* event_loop::add_descriptor(int fd, watch_direction direction, event_callback callback,
                                       void* argument) {
    loop_event* const event = make_room() ? add(descriptors_, callback, argument) : nullptr;
    if (event != nullptr) {
        event->fd = fd;
        event->direction = direction;
        ++descriptor_count_;
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
    const loop_time* const nearest = arm_timers();
    arm_descriptors();
    const int ready = ::poll(places_.data(), watched_, limit_wait(nearest));
    if (ready < 0) {
        wait_failed(errno);
    }
    fire_timers();
    if (ready > 0) {
        fire_descriptors();
    }
    sweep();
}

// Return: when the nearest timer is due by the steady clock; null when there is none.
const loop_time* event_loop::arm_timers() {
    const loop_time* nearest = nullptr;
    for (loop_event& timer : timers_) {
        timer.flags &= ~loop_event::armed;
        if ((timer.flags & loop_event::active) != 0) {
            timer.flags |= loop_event::armed;
            if (nearest == nullptr || timer.expiry.steady < *nearest) {
                nearest = &timer.expiry.steady;
            }
        }
    }
    return nearest;
}

void event_loop::arm_descriptors() {
    watched_ = 0;
    for (loop_event& event : descriptors_) {
        event.flags &= ~loop_event::armed;
        if ((event.flags & loop_event::active) != 0) {
            event.flags |= loop_event::armed;
            event.slot = watched_;
            const short wanted = event.direction == watch_direction::read ? POLLIN : POLLOUT;
            places_[watched_++] = {event.fd, wanted, 0};
        }
    }
}

// Sees to it that the wait ends when the nearest timer is due.
//
// Return: the time-out of poll, in milliseconds.
int event_loop::limit_wait(const loop_time* nearest) {
    if (nearest == nullptr || alarm_.rings_by(*nearest)) {
        return wait_without_end;
    }
    const int64_t left = milliseconds_left(*nearest, now_().steady);
    if (left > 0 && alarm_.set(*nearest, left)) {
        return wait_without_end;
    }
    return static_cast<int>(std::min(left, int64_t{INT_MAX}));
}

void event_loop::wait_failed(int error) {
    if (error == EINTR) {
        alarm_.silence();
    } else {
        ::poll(nullptr, 0, failing_poll_pause);
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
    const loop_moment now = now_();
    for (loop_event& timer : timers_) {
        if (stopped_) {
            return;
        }
        if ((timer.flags & loop_event::armed) != 0 && is_due(timer.expiry, now)) {
            timer.expiry = moment_later_by(timer.expiry, timer.interval);
            fire(timer);
        }
    }
}

void event_loop::fire_descriptors() {
    for (loop_event& event : descriptors_) {
        if (stopped_) {
            return;
        }
        // Besides what was asked for, poll reports failures and hang-ups, which the callback finds
        // out about by its own call; left alone they would end every wait at once.
        if ((event.flags & loop_event::armed) != 0 && places_[event.slot].revents != 0) {
            fire(event);
        }
    }
}

void event_loop::sweep() {
    if (any_deleted_) {
        const auto is_deleted = [](const loop_event& event) {
            return (event.flags & loop_event::deleted) != 0;
        };
        timers_.remove_if(is_deleted);
        descriptor_count_ -= descriptors_.remove_if(is_deleted);
        any_deleted_ = false;
    }
}

}  // namespace veltrancord
