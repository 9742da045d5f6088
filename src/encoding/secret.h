// The "enc:" form in which secret values are kept in the configuration.
//
// This hides secrets from a casual look, it does not protect them: the key is part of the program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace veltrancord {

// Room for the plain or the stored form of every secret that the store keeps, NUL included.
inline constexpr std::size_t secret_text_size = 256;

// Changes the key for the rest of the process: for tools that work on the files of a product with
// another key than their own. Before anything else is called.
//
// Return: false, and nothing is changed, for a key that has not 7 characters of printable ASCII.
[[nodiscard]] bool use_value_key(std::string_view key);

// Writes the "enc:" form of `plain` and a NUL into `out`. The length is kept in one byte: a plain
// text of 256 bytes or more is cut to its length modulo 256. `plain` is left as it was.
//
// Return: the length of the base64 part, or -1 when the form does not fit `out`; nothing is
// written then.
[[nodiscard]] int32_t enc_value_encode(std::string_view plain, std::span<char> out);

// Writes the plain value of `stored` into `out`, which the caller has cleared, bounded by its size
// with a NUL always kept. Text not in "enc:" form is copied as it stands. "enc:" without a second
// ":" leaves `out` as it was. When the base64 part is invalid only the bytes that were decoded are
// there, and no byte of the key shows.
//
// Return: 0, or -1 when the base64 part is invalid.
[[nodiscard]] int32_t enc_value_decode(std::string_view stored, std::span<char> out);

}  // namespace veltrancord
