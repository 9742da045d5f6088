// Moments as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace veltrancord::tool {

// "2026-11-22 12:20:05" in the local time zone, of seconds since the epoch.
std::string local_time(int64_t seconds);

}  // namespace veltrancord::tool
