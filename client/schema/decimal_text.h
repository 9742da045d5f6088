// Numbers compared exactly by their digits, of whatever width.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace veltrancord::schema {

// Digits of a number, leading zeros not counted: more than any built-in type needs.
inline constexpr std::size_t max_digits = 24;

struct decimal_text {
    bool negative = false;  // never of zero
    std::string whole;      // without leading zeros; empty: 0
    std::string fraction;   // without zeros at its end

    // "-12.5", in its shortest form.
    [[nodiscard]] std::string text() const;
};

// Reads "+5", "-0.50", ".5" or "5.". Return: nothing for what is no number, or of too many digits.
[[nodiscard]] std::optional<decimal_text> read_decimal(std::string_view text);

// Return: below 0, 0 or above 0, as `left` is less than, equal to or greater than `right`.
[[nodiscard]] int compare(const decimal_text& left, const decimal_text& right);

}  // namespace veltrancord::schema
