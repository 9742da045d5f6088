// Texts of "name=value" lines: configuration, journals and what travels over the broker.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

namespace veltrancord::bridge {

// Takes the next line off the front of `text`, without its line feed. Return: false at the end.
// The line points into the text.
[[nodiscard]] inline bool next_line(std::string_view& text, std::string_view& line) {
    if (text.empty()) {
        return false;
    }
    const std::size_t end = text.find('\n');
    line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return true;
}

struct named_value {
    std::string_view name;
    std::string_view value;
};

// Cuts a line at its first "=". Return: false where there is none, or nothing before it.
[[nodiscard]] inline bool split_line(std::string_view line, named_value& parts) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return false;
    }
    parts = {line.substr(0, equals), line.substr(equals + 1)};
    return true;
}

// Reads a number of digits alone, without sign and leading zeros. Return: false for everything else
// and for what `Number` cannot hold; `number` is then 0 or as it was.
template <typename Number>
[[nodiscard]] bool read_number(std::string_view text, Number& number) {
    if (text.empty() || text.front() < '0' || text.front() > '9' ||
        (text.size() > 1 && text.front() == '0')) {
        return false;
    }
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

}  // namespace veltrancord::bridge
