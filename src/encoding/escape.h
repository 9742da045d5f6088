// The escape coding of path components and element names: "_" and two hexadecimal digits.
//
// Encoding matches a client's path component to element names as they are stored; decoding turns
// stored names into the keys of replies. The two are not exact inverses: "+" decodes to a blank,
// while the encoder never writes a "+".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veltrancord {

inline constexpr std::array<bool, 256> url_safe_bytes = [] {
    std::array<bool, 256> table{};
    for (const char c : std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789-.*")) {
        table[static_cast<unsigned char>(c)] = true;
    }
    return table;
}();

// Whether encoding leaves the byte as it is.
[[nodiscard]] inline bool url_safe(char byte) {
    return url_safe_bytes[static_cast<unsigned char>(byte)];
}

// Return: 0 to 15, or -1 when `c` is not a hexadecimal digit of either case.
[[nodiscard]] int32_t hex_digit_value(char c);

// Encode (decode) the text up to its end or its first NUL, writing at most `size` bytes, the
// terminating NUL included; `size` is at least 1. An escape that does not fit whole is dropped, and
// the text ends there.
//
// Return: `out`.
char* url_encode(char* out, std::size_t size, std::string_view in);
char* url_decode(char* out, std::size_t size, std::string_view in);

}  // namespace veltrancord
