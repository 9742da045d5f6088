// Waiting by alarm, and a clock for intervals. Nothing in the service calls these two. Programs of
// the device that are built with its library do: one thread that waits a while between two tries
// and tells how long something took, whatever the wall clock is set to.
#pragma once

#include <cstdint>

namespace veltrancord {

// Sleeps until SIGALRM arrives, which it does after `seconds`; prints "sigsuspend() returned" then.
// Other signals that the caller does not block are handled meanwhile and end the sleep early. 0
// seconds arm no alarm. Main thread; the disposition of SIGALRM stays changed.
void do_sleep(unsigned seconds);

// Milliseconds since an arbitrary moment, in steps of the system's clock tick. Any thread.
[[nodiscard]] int64_t millisecond_ticks();

}  // namespace veltrancord
