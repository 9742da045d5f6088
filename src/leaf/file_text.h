// A whole file as text in memory.
#pragma once

#include <cstdint>
#include <memory>

namespace veltrancord {

// Memory handed out by LoadFile2Buf.
struct free_file_text {
    void operator()(char* text) const;
};
using file_text = std::unique_ptr<char, free_file_text>;

// Reads a whole file into a new NUL-terminated text. The file must be writable too, and not empty.
// Messages as printed by the routine go to standard output and standard error. Bytes that could not
// be read are zero. Neither a FIFO nor a device makes it wait: they have no size, so they fail.
//
// Return: 0 with the text in `buf`, or -1.
[[nodiscard]] int32_t LoadFile2Buf(const char* path, file_text& buf);

}  // namespace veltrancord
