// The argument of a write command as a file without a name, for the programs that it starts to read
// from their standard input.
#pragma once

#include <string_view>

#include "leaf/owned_fd.h"

namespace veltrancord {

// Makes a temporary file in /tmp, takes its name away at once, and writes `content` into it. A
// failure does not fail the command, so it is only printed: "mkstemp", "unlink temp file" or "write
// body" with the reason. After "write body" the file holds what could be written.
//
// Return: the file, or an empty owner when there is none.
[[nodiscard]] owned_fd make_argument_file(std::string_view content);

// Opens the file once more, at its beginning and with a position of its own. Two programs that
// shared one position would take each other's text away: the second would find nothing to read.
// Where the file cannot be opened anew (no /proc), its content is copied into another one.
//
// Return: a descriptor, or an empty owner.
[[nodiscard]] owned_fd open_argument_file(const owned_fd& file);

}  // namespace veltrancord
