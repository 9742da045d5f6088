// Files that decide what may be written from outside: root's alone.
#pragma once

#include <cstddef>
#include <string>

namespace veltrancord::bridge {

inline constexpr std::size_t largest_trusted_file = std::size_t{64} * 1024;

// Reads the file at `path`, at most largest_trusted_file bytes. It and its directory must belong to
// root and be writable to nobody else.
//
// Return: why it is not to be trusted or cannot be read; empty with its content in `text`.
[[nodiscard]] std::string read_trusted_file(const std::string& path, std::string& text);

}  // namespace veltrancord::bridge
