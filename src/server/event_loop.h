// The event loop of the server thread: timers and watched descriptors, one callback each.
//
// Server thread only; nothing here is locked. The source begins with the design.
#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <vector>

#include "server/loop_time.h"
#include "server/wait_alarm.h"

namespace veltrancord {

using event_callback = void (*)(void* argument);

enum class watch_direction { read, write };

// One timer or watched descriptor. Made, owned and freed by the loop; whoever added it may keep the
// pointer until it calls event_loop::remove, or, for a one-shot event, until its callback returns.
struct loop_event {
    enum flag : uint32_t {
        active = 1,
        deleted = 2,   // freed at the end of the pass
        one_shot = 4,  // marked deleted when it fires
        armed = 8,     // takes part in this pass
    };

    uint32_t flags = 0;
    event_callback callback = nullptr;
    void* argument = nullptr;

    loop_moment expiry;    // timers; due when either clock has reached it
    int32_t interval = 0;  // timers; milliseconds

    int fd = -1;  // watched descriptors; not owned
    watch_direction direction = watch_direction::read;
    std::size_t slot = 0;  // index in the loop's places_ during a pass
};

class event_loop {
  public:
    // `now` gives the clocks that timers go by.
    explicit event_loop(loop_moment (*now)() = clocks_now) : now_(now) {}
    event_loop(const event_loop&) = delete;
    event_loop& operator=(const event_loop&) = delete;

    // Fires `interval` milliseconds from now, once, or again and again; sooner when the wall clock
    // is set forward, but not later when it is set back.
    //
    // Return: the event, or null when memory could not be had.
    [[nodiscard]] loop_event* add_timer(int32_t interval, bool one_shot, event_callback callback,
                                        void* argument);

    // Fires in every pass in which `fd` can be read or written without blocking, or has failed.
    // The event must be removed before the descriptor is closed.
    //
    // Return: the event, or null when memory could not be had.
    [[nodiscard]] loop_event* add_descriptor(int fd, watch_direction direction,
                                             event_callback callback, void* argument);

    // Marks the event for freeing at the end of the pass and clears the caller's pointer; null does
    // nothing. Its callback is not called any more, not even in this pass.
    void remove(loop_event*& event);

    // Makes run() return after this pass, whose callbacks not yet called are left out.
    void stop() { stopped_ = true; }

    // Runs passes until stop() is called.
    void run();

    // One pass; waits for at most as long as the nearest timer has left.
    void run_pass();

  private:
    using event_list = std::forward_list<loop_event>;  // newest first

    bool make_room();
    static loop_event* add(event_list& list, event_callback callback, void* argument);
    const loop_time* arm_timers();
    void arm_descriptors();
    int limit_wait(const loop_time* nearest);
    void wait_failed(int error);
    void fire(loop_event& event);
    void fire_timers();
    void fire_descriptors();
    void sweep();

    loop_moment (*now_)();
    event_list timers_;
    event_list descriptors_;
    wait_alarm alarm_;
    std::vector<pollfd> places_;  // what poll is given; at least one for each watched descriptor
    std::size_t watched_ = 0;     // how many of them poll is given in this pass
    std::size_t descriptor_count_ = 0;
    bool any_deleted_ = false;
    bool stopped_ = false;
};

}  // namespace veltrancord
