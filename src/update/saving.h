// Saving changed documents to their files. Server thread only.
#pragma once

#include <cstdint>

namespace veltrancord {

// Saves every document marked DOC_SAVE_FLASH to its file, each in one replacement, and clears both
// flags: the file then holds the memory-only changes of that document as well. A document that
// cannot be saved keeps its flags, with one line on standard error. Called after every command.
// Does nothing while the process is being terminated.
//
// What could not be saved is tried again after the next command that changes something, after
// syncmemtoflash, or after the first command when save_retry_seconds have passed. `now` is a clock
// that is never set, in seconds.
void save_changed_documents(int64_t now);
void save_changed_documents();  // now

// Saves every document marked DOC_SAVE_MEMORY. One that cannot be saved is marked DOC_SAVE_FLASH
// too: the client asked for it to be on flash, so it is tried again as above.
//
// Return: result_ok, or result_not_found when no document is loaded or the process is being
// terminated.
[[nodiscard]] int32_t save_memory_changes();

// A flash that is full stays so for a while, and each try may write to it.
inline constexpr int64_t save_retry_seconds = 10;

}  // namespace veltrancord
