// Decimal numbers in text, as configuration values and arguments carry them.
#pragma once

#include <cstdint>
#include <string_view>

namespace veltrancord {

// Reads a number as atoi() does: white space, one sign, digits; whatever follows the digits does
// not count, and text without digits is 0. Unlike atoi() a number beyond 32 bits is not undefined:
// it becomes the nearest one that 32 bits hold.
//
// Return: the number.
[[nodiscard]] int32_t decimal_number(std::string_view text) noexcept;

}  // namespace veltrancord
