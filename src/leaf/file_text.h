// A whole file as text in memory.
#pragma once

#include <cstdint>
#include <string>

namespace veltrancord {

// Reads a whole file in place of what `buf` holds. The file must be writable too, and not empty.
// Messages as printed by the routine go to standard output and standard error. Bytes that could not
// be read are zero. Neither a FIFO nor a device makes it wait: they have no size, so they fail.
//
// Return: 0 with the file's bytes in `buf`, NUL bytes among them, or -1.
[[nodiscard]] int32_t LoadFile2Buf(const char* path, std::string& buf);

}  // namespace veltrancord
