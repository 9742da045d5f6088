// Whether this process is being terminated.
#pragma once

#include <atomic>

namespace veltrancord {

// Set by the termination signal handler, read by the server thread: while it is set nothing is
// written to files any more. Lock-free, so that the handler may store into it.
inline std::atomic<bool> g_terminating{false};
static_assert(std::atomic<bool>::is_always_lock_free);

}  // namespace veltrancord
