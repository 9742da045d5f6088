// The two shared-memory segments that the device's other programs know by key. The service itself
// only offers them; no request attaches them. Server and main thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace veltrancord {

inline constexpr key_t request_segment = 524;
inline constexpr key_t reply_segment = 525;
inline constexpr std::size_t segment_size = 0x60000;

struct shared_segment {
    int id = -1;              // -1 until obtained
    void* address = nullptr;  // null until attached
};
inline shared_segment g_requestSegment;
inline shared_segment g_replySegment;

// A read offset into the request area of the first segment; the worker's main loop sets it back.
inline std::size_t g_shmBodyOffset = 0;

// Obtains and attaches what is not there yet; for a request whose reply is passed in the segments.
// A segment that is there but cannot be attached stays detached.
//
// Return: 0, or -1 after "allocate fail" with the key and the reason when one cannot be obtained.
int32_t shm_attach();

// Detaches both; ids stay.
void shm_detach();

// Detaches both, removes those obtained and forgets their ids.
void shm_remove();

}  // namespace veltrancord
