// Content hashes: SHA-256 in hexadecimal.
#pragma once

#include <string>
#include <string_view>

namespace veltrancord::bridge {

// Return: 64 digits in lower case; empty where the library could not reckon.
[[nodiscard]] std::string digest_of(std::string_view content);

// Whether the text has that form.
[[nodiscard]] inline bool is_digest(std::string_view text) {
    constexpr std::size_t length = 64;
    return text.size() == length &&
           text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace veltrancord::bridge
