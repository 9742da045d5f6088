// The wall clock.
#pragma once

#include <cstdint>
#include <ctime>

namespace veltrancord {

// Seconds since the epoch, in 64 bits on every target, so that adding a lifetime cannot overflow.
// Rules that depend on time take it as an argument; only handlers and threads call this.
inline int64_t wall_clock_seconds() {
    return static_cast<int64_t>(std::time(nullptr));
}

}  // namespace veltrancord
