// The device's backup script, and the thread that runs it some time after changes.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace veltrancord {

// Runs the backup script, if there is one, through the shell with `text` on its command line as it
// stands, and waits for it. A text over 256 characters prints "input parameter fail !!" on standard
// error and runs nothing. Any thread.
//
// Return: result_ok, whatever the script returned.
int32_t XMLDBCallBack(std::string_view text);

// Whether a backup is due at `now`, when the last one was at `last` and `changes` commands have
// changed something since. Times in seconds. More than 1800 seconds between the two, in either
// direction, count as a step of the clock, after which the interval cannot be judged any more: the
// backup is made at once. An interval above 1800 seconds is cut short by that rule.
[[nodiscard]] bool backup_is_due(int64_t now, int64_t last, uint32_t changes, int32_t interval);

// One look of the backup thread: makes a backup if one is due, sets the time of the last backup,
// computes the reply capacity anew and clears the counter. A change that comes while the script
// runs may be missed until the next one.
void check_backup(std::atomic<uint32_t>& change_counter, int32_t interval, int64_t& last);

// The backup thread's routine: looks every 5 seconds, for ever. The server thread counts changes,
// this thread clears them. The first change after the start is backed up at the next look.
[[noreturn]] void backup_thread(std::atomic<uint32_t>& change_counter, int32_t interval);

}  // namespace veltrancord
