// Hexadecimal digits.
#pragma once

#include <cstdint>

namespace veltrancord {

// Return: 0 to 15, or -1 when `c` is not a hexadecimal digit of either case.
[[nodiscard]] int32_t hex_digit_value(char c);

}  // namespace veltrancord
