// For tests: an end to what hangs, whoever started the test program.
#pragma once

namespace veltrancord {

// How long a unit test may take: so long that only one that hangs is ever ended.
inline constexpr int test_seconds = 100;

// From now on the process is killed after so many seconds, unless this is called again; with 0
// never. The signal is one that nothing can block or handle, as tests block and handle the others.
void end_process_after(int seconds);

// The seconds left of them, rounded up; 0 where there is no limit.
int seconds_until_end();

}  // namespace veltrancord
