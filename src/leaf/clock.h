// The wall clock and the monotonic clock.
#pragma once

#include <cstdint>
#include <ctime>

namespace veltrancord {

// Seconds since the epoch, in 64 bits on every target, so that adding a lifetime cannot overflow.
// Rules that depend on time take it as an argument; only handlers and threads call this.
inline int64_t wall_clock_seconds() {
    return static_cast<int64_t>(std::time(nullptr));
}

// Milliseconds of the monotonic clock: for intervals, which setting the wall clock must not change.
inline int64_t monotonic_milliseconds() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace veltrancord
