// Text fields of a fixed size: the one way in which text gets into them.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace veltrancord {

// Copies as much of `text` as fits `field` with a terminating NUL; the rest of the field becomes
// NUL too, so that no byte of an earlier content is left.
//
// Return: true when the whole text fitted, false when it was cut.
template <std::size_t Size>
bool copy_bounded(char (&field)[Size], std::string_view text) {
    static_assert(Size > 0);
    const std::size_t length = text.size() < Size ? text.size() : Size - 1;
    if (length > 0) {
        std::memcpy(field, text.data(), length);
    }
    std::memset(field + length, 0, Size - length);
    return length == text.size();
}

}  // namespace veltrancord
