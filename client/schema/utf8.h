// Characters of UTF-8 text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace veltrancord::schema {

inline bool continues_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// How many there are. Bytes that are no UTF-8 count for one, or for none.
inline std::size_t character_count(std::string_view text) {
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continues_character));
}

// The first `count` characters.
inline std::string first_characters(std::string_view text, std::size_t count) {
    std::size_t end = 0;
    for (; end < text.size(); ++end) {
        if (!continues_character(text[end]) && count-- == 0) {
            break;
        }
    }
    return std::string(text.substr(0, end));
}

// Takes the first character off `text`, which is not empty. Return: its number; of a byte that is
// no UTF-8 the replacement character's.
inline uint32_t take_character(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    std::size_t size = 1;
    while (size < text.size() && size < 4 && continues_character(text[size])) {
        ++size;
    }
    const std::size_t wanted = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (wanted != size) {
        text.remove_prefix(1);
        return 0xFFFD;
    }
    uint32_t character = size == 1 ? lead : lead & (0x7FU >> size);
    for (std::size_t at = 1; at < size; ++at) {
        character = character << 6U | (static_cast<unsigned char>(text[at]) & 0x3FU);
    }
    text.remove_prefix(size);
    return character;
}

}  // namespace veltrancord::schema
