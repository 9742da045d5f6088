#include "server/loop_time.h"

#include <sys/time.h>
#include <time.h>

namespace veltrancord {

namespace {

constexpr int64_t due_below = 5;             // milliseconds; a timer this near has run out
constexpr int32_t microseconds = 1'000'000;  // of a second

}  // namespace

loop_moment clocks_now() {
    timeval wall = {};
    ::gettimeofday(&wall, nullptr);
    timespec steady = {};
    ::clock_gettime(CLOCK_MONOTONIC, &steady);
    return {{wall.tv_sec, wall.tv_usec}, {steady.tv_sec, steady.tv_nsec / 1000}};
}

int64_t milliseconds_left(const loop_time& expiry, const loop_time& now) {
    const int64_t left = (expiry.seconds - now.seconds) * 1000 +
                         (expiry.microseconds - now.microseconds + 500) / 1000;
    return left < due_below ? 0 : left;
}

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

loop_moment moment_later_by(const loop_moment& from, int32_t milliseconds) {
    return {later_by(from.wall, milliseconds), later_by(from.steady, milliseconds)};
}

bool is_due(const loop_moment& expiry, const loop_moment& now) {
    return milliseconds_left(expiry.wall, now.wall) == 0 ||
           milliseconds_left(expiry.steady, now.steady) == 0;
}

}  // namespace veltrancord
