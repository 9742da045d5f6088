// The argument of the write commands: lines "path=value", cut into their two parts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace veltrancord {

inline constexpr std::size_t max_line_path = 255;        // characters of a path
inline constexpr std::size_t max_element_value = 4095;   // characters of an element's value
inline constexpr std::size_t max_attribute_value = 255;  // characters of an attribute's value

// One line; the views point into the argument.
struct update_line {
    std::string_view path;
    std::string_view value;
};

// Cuts an argument into lines. A path ends at the first "=", searched through the whole rest of
// the argument: a line without one is not skipped, its text becomes the beginning of the next path,
// which then names nothing or something unexpected. Clients rely on such an argument being refused,
// so it must not be mended. A value ends at the line feed or at the end of the argument. No bounds
// are checked here.
class update_lines {
  public:
    explicit update_lines(std::string_view argument) : rest_(argument) {}

    // Return: false when no line is left.
    [[nodiscard]] bool next(update_line& line);

  private:
    std::string_view rest_;
};

inline bool update_lines::next(update_line& line) {
    const std::size_t equals = rest_.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    line.path = rest_.substr(0, equals);
    rest_.remove_prefix(equals + 1);
    line.value = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(std::min(rest_.size(), line.value.size() + 1));
    return true;
}

}  // namespace veltrancord
