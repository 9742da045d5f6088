#include "schema/decimal_text.h"

#include <gtest/gtest.h>

namespace veltrancord::schema {
namespace {

std::string shortest(std::string_view text) {
    const auto number = read_decimal(text);
    return number ? number->text() : "none";
}

int order(std::string_view left, std::string_view right) {
    return compare(*read_decimal(left), *read_decimal(right));
}

TEST(DecimalText, IsReadAsWritten) {
    EXPECT_EQ(shortest("007"), "7");
    EXPECT_EQ(shortest("-0.0"), "0");
    EXPECT_EQ(shortest("+1.50"), "1.5");
    EXPECT_EQ(shortest(".5"), "0.5");
    EXPECT_EQ(shortest("5."), "5");
    for (const char* text : {"", ".", "+", "-", "1e3", "0x1", "1,5", "1..2", "--1", " 1", "1 "}) {
        EXPECT_EQ(shortest(text), "none") << text;
    }
}

TEST(DecimalText, HasAtMostTwentyFourDigits) {
    EXPECT_EQ(shortest("000" + std::string(24, '9')), std::string(24, '9'));
    EXPECT_EQ(shortest(std::string(25, '9')), "none");
    EXPECT_EQ(shortest("0." + std::string(25, '0')), "none");
}

TEST(DecimalText, IsComparedBeyondWhatADoubleHolds) {
    EXPECT_LT(order("18446744073709551615", "18446744073709551616"), 0);
    EXPECT_LT(order("-9223372036854775809", "-9223372036854775808"), 0);
    EXPECT_GT(order("0.30000000000000000001", "0.3"), 0);
    EXPECT_EQ(order("010.500", "10.5"), 0);
    EXPECT_EQ(order("-0", "+0"), 0);
    EXPECT_LT(order("-1", "0.5"), 0);
    EXPECT_LT(order("9", "10"), 0);
    EXPECT_GT(order("-9", "-10"), 0);
    EXPECT_LT(order("1.09", "1.1"), 0);
}

}  // namespace
}  // namespace veltrancord::schema
