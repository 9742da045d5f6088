// A whole file as a string.
#pragma once

#include <string>

namespace veltrancord::bench {

// Reads `path` to its end; files of /proc, which tell no size, too.
//
// Return: the bytes read; empty when the file cannot be opened.
[[nodiscard]] std::string read_whole(const std::string& path);

}  // namespace veltrancord::bench
