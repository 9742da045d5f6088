// The escape coding of path components and element names: "_" and two hexadecimal digits.
//
// Encoding matches a client's path component to element names as they are stored; decoding turns
// stored names into the keys of replies. The two are not exact inverses: "+" decodes to a blank,
// while the encoder never writes a "+".
#pragma once

#include <cstddef>
#include <string_view>

namespace veltrancord {

// Encode (decode) the text up to its end or its first NUL, writing at most `size` bytes, the
// terminating NUL included; `size` is at least 1. An escape that does not fit whole is dropped, and
// the text ends there.
//
// Return: `out`.
char* url_encode(char* out, std::size_t size, std::string_view in);
char* url_decode(char* out, std::size_t size, std::string_view in);

}  // namespace veltrancord
