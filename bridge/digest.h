// Content hashes: SHA-256 in hexadecimal.
#pragma once

#include <string>
#include <string_view>

namespace veltrancord::bridge {

// Return: 64 digits in lower case; empty where the library could not reckon.
[[nodiscard]] std::string digest_of(std::string_view content);

// Whether the text has that form.
[[nodiscard]] bool is_digest(std::string_view text);

}  // namespace veltrancord::bridge
