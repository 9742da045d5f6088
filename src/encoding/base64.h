// Base64 with the standard alphabet and "=" padding, as the stored form of secrets uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace veltrancord {

// Bytes that the encoded form of `length` bytes takes, the terminating NUL included.
constexpr std::size_t base64_encoded_size(std::size_t length) {
    return (length + 2) / 3 * 4 + 1;
}

// Encodes `in` and a terminating NUL into `out`.
//
// Return: the text's length, or -1 when `out` is smaller than base64_encoded_size(in.size());
// nothing is written then.
[[nodiscard]] int32_t base64_encode(std::span<const unsigned char> in, std::span<char> out);

// What decoding gave: `written` bytes are in the output (a NUL follows them only when `code` is 0).
struct base64_decoded {
    int32_t code = 0;  // 0, or -1 at the first invalid character or when the output is full
    std::size_t written = 0;
};

// Decodes `text`, padded with "=" to a multiple of 4 characters where it is not. Each "=" stands
// for zero bits, so a padded group still yields 3 bytes. Only the low 7 bits of a character count.
// An empty text is invalid. The output holds the groups decoded before a failure.
[[nodiscard]] base64_decoded base64_decode(std::string_view text, std::span<char> out);

}  // namespace veltrancord
