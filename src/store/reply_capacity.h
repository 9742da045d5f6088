// The reply capacity: how many bytes a reply may have.
#pragma once

#include <cstdint>

namespace veltrancord {

inline constexpr uint32_t min_reply_capacity = 262144;
// A result is a length in a signed 32-bit integer; this leaves room for the last line's key.
inline constexpr uint32_t max_reply_capacity = 0x7FFFF000;

// The device's own configuration: what the service runs on unless it is told otherwise. The reply
// capacity follows it in any case.
inline constexpr char default_config_directory[] = "/mnt/database/xml";

// Sets the capacity to the total size of the directory's entries ("." and ".." included), but never
// below min_reply_capacity nor above max_reply_capacity. Entries that cannot be looked at are
// reported on standard error and not counted, temporary files of a replacement silently so. A
// directory that cannot be opened leaves it unchanged. Called by the main thread at start and by
// the backup thread; a request reads the capacity once.
void scan_reply_capacity(const char* directory);

// The current capacity in bytes; min_reply_capacity until a scan has succeeded.
[[nodiscard]] uint32_t GetReadBufSize();

}  // namespace veltrancord
