// The commands that change settings line by line: write, writedbmem and writeattr.
#pragma once

#include <cstdint>
#include <string_view>

#include "handler/handler.h"

namespace veltrancord {

// Applies "path=value" lines to element texts, in order, up to the first that fails: the lines
// before it stay applied, since a client may rely on what came before its mistake. Every element
// written queues its program (update/program_queue.h).
//
// Return: the number of lines applied; result_bad_argument when `text` is empty; the failing line's
// code.
[[nodiscard]] int32_t write_lines(std::string_view text, bool to_flash);

// The same for attributes; queues nothing.
[[nodiscard]] int32_t writeattr_lines(std::string_view text);

command_handler write_handle;       // write
command_handler writedbmem_handle;  // writedbmem
command_handler writeattr_handle;   // writeattr

}  // namespace veltrancord
