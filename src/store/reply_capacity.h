// The reply capacity: how many bytes a reply may have.
#pragma once

#include <cstdint>

namespace veltrancord {

inline constexpr uint32_t min_reply_capacity = 262144;

// Sets the capacity to the total size of the directory's entries ("." and ".." included), but never
// below min_reply_capacity. A directory that cannot be opened leaves it unchanged. Called by the
// main thread at start and by the backup thread; a request reads the capacity once.
void scan_reply_capacity(const char* directory);

// The current capacity in bytes; min_reply_capacity until a scan has succeeded.
[[nodiscard]] uint32_t GetReadBufSize();

}  // namespace veltrancord
