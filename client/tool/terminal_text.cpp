#include "terminal_text.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace veltrancord::tool {

namespace {

// Return: the bytes of the character that the text begins with, 0 where it is none that may be
// shown: no UTF-8 (overlong forms and surrogates included), or a control character beyond ASCII.
std::size_t shown_character(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<uint32_t>(static_cast<unsigned char>(text[at])) : 0;
    };
    const uint32_t first = byte(0);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    constexpr uint32_t least[] = {0xA0, 0x800, 0x10000};
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    uint32_t character = first & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0U) != 0x80) {
            return 0;
        }
        character = character << 6U | (byte(at) & 0x3FU);
    }
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return character < least[length - 2] || character > 0x10FFFF || surrogate ? 0 : length;
}

// Return: the length of a marked colour at the beginning of the text, or 0.
std::size_t marked_colour(std::string_view text) {
    if (!text.starts_with(colour_mark)) {
        return 0;
    }
    const std::size_t end = text.find_first_not_of("0123456789;", colour_mark.size());
    return end != std::string_view::npos && text[end] == 'm' ? end + 1 : 0;
}

void append_escaped(std::string& out, char byte) {
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(byte));
    out += escaped;
}

}  // namespace

std::string terminal_text(std::string_view text, bool utf8) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const char byte = text.front();
        std::size_t length = 1;
        if (const std::size_t colour = marked_colour(text); colour > 0) {
            out += "\033[";
            out.append(text.substr(colour_mark.size(), colour - colour_mark.size()));
            length = colour;
        } else if ((byte >= ' ' && byte != 0x7f) || byte == '\n' || byte == '\t' || byte == '\0') {
            out += byte;
        } else if (const std::size_t shown = utf8 ? shown_character(text) : 0; shown > 0) {
            out.append(text.substr(0, shown));
            length = shown;
        } else {
            append_escaped(out, byte);
        }
        text.remove_prefix(length);
    }
    return out;
}

bool locale_is_utf8() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            std::string upper(value);
            std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char letter) {
                return static_cast<char>(std::toupper(letter));
            });
            return upper.find("UTF-8") != std::string::npos ||
                   upper.find("UTF8") != std::string::npos;
        }
    }
    return false;
}

void print_to_error(std::string_view line) {
    const bool terminal = isatty(STDERR_FILENO) == 1;
    const std::string text = terminal ? terminal_text(line, locale_is_utf8()) : std::string(line);
    std::fprintf(stderr, "%s\n", text.c_str());
}

}  // namespace veltrancord::tool
