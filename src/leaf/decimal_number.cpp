#include "leaf/decimal_number.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace veltrancord {

namespace {

constexpr bool is_white_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

int32_t decimal_number(std::string_view text) noexcept {
    std::size_t at = 0;
    while (at < text.size() && is_white_space(text[at])) {
        ++at;
    }
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        ++at;
    }
    // One above the largest magnitude: from there on more digits change nothing.
    constexpr int64_t too_large = int64_t{1} << 32;
    int64_t magnitude = 0;
    for (; at < text.size() && is_digit(text[at]); ++at) {
        magnitude = std::min(magnitude * 10 + (text[at] - '0'), too_large);
    }
    const int64_t number = negative ? -magnitude : magnitude;
    return static_cast<int32_t>(std::clamp<int64_t>(number, std::numeric_limits<int32_t>::min(),
                                                    std::numeric_limits<int32_t>::max()));
}

}  // namespace veltrancord
