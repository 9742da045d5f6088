#include "server/loop_time.h"

#include <sys/time.h>

namespace veltrancord {

namespace {

constexpr int64_t due_below = 5;             // milliseconds; a timer this near has run out
constexpr int32_t microseconds = 1'000'000;  // of a second

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

}  // namespace veltrancord
