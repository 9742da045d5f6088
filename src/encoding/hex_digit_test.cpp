#include "encoding/hex_digit.h"

#include <gtest/gtest.h>

#include <string_view>

namespace veltrancord {
namespace {

TEST(HexDigit, GivesTheValueOfEveryDigitAndRefusesEveryOtherByte) {
    constexpr std::string_view digits = "0123456789ABCDEFabcdef";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const std::size_t position = c == '\0' ? std::string_view::npos : digits.find(c);
        const int32_t expected =
            position == std::string_view::npos
                ? -1
                : static_cast<int32_t>(position < 16 ? position : position - 6);
        EXPECT_EQ(hex_digit_value(c), expected) << byte;
    }
    EXPECT_EQ(hex_digit_value('f'), 15);
    EXPECT_EQ(hex_digit_value('G'), -1);
}

}  // namespace
}  // namespace veltrancord
