// The time that the event loop's timers go by.
#pragma once

#include <cstdint>
#include <tuple>

namespace veltrancord {

// A moment of one clock.
struct loop_time {
    int64_t seconds = 0;
    int64_t microseconds = 0;  // 0 to 999999

    friend bool operator==(const loop_time&, const loop_time&) = default;
    friend bool operator<(const loop_time& a, const loop_time& b) {
        return std::tie(a.seconds, a.microseconds) < std::tie(b.seconds, b.microseconds);
    }
};

// A moment by both clocks: the wall clock, which can be set, and the monotonic clock.
struct loop_moment {
    loop_time wall;
    loop_time steady;
};

// Both clocks now.
[[nodiscard]] loop_moment clocks_now();

// Return: `expiry` minus `now` in milliseconds, to the nearest; what is below 5 counts as 0.
[[nodiscard]] int64_t milliseconds_left(const loop_time& expiry, const loop_time& now);

// Return: the moment `milliseconds` later.
[[nodiscard]] loop_time later_by(const loop_time& from, int32_t milliseconds);
[[nodiscard]] loop_moment moment_later_by(const loop_moment& from, int32_t milliseconds);

// Whether `expiry` has come by either clock, or is less than 5 milliseconds away.
[[nodiscard]] bool is_due(const loop_moment& expiry, const loop_moment& now);

}  // namespace veltrancord
