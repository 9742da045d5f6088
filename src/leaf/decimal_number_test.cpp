#include "leaf/decimal_number.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace veltrancord {
namespace {

constexpr int32_t lowest = std::numeric_limits<int32_t>::min();
constexpr int32_t highest = std::numeric_limits<int32_t>::max();

TEST(DecimalNumber, ReadsSignsWhiteSpaceAndDigits) {
    struct {
        const char* text;
        int32_t number;
    } const rows[] = {
        {"", 0},
        {"0", 0},
        {"7", 7},
        {"007", 7},
        {"-7", -7},
        {"+7", 7},
        {" \t\n\v\f\r7", 7},
        {"7 8", 7},
        {"7x", 7},
        {"x7", 0},
        {"-", 0},
        {"+", 0},
        {"--7", 0},
        {"+-7", 0},
        {"- 7", 0},
        {"0x10", 0},
        {"1,2", 1},
        {"2147483647", highest},
        {"-2147483648", lowest},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(decimal_number(row.text), row.number) << '"' << row.text << '"';
    }
}

TEST(DecimalNumber, HoldsNumbersBeyond32BitsAtTheNearest) {
    EXPECT_EQ(decimal_number("2147483648"), highest);
    EXPECT_EQ(decimal_number("-2147483649"), lowest);
    EXPECT_EQ(decimal_number("4294967296"), highest);
    EXPECT_EQ(decimal_number("9223372036854775808"), highest);
    EXPECT_EQ(decimal_number("-9223372036854775809"), lowest);
    EXPECT_EQ(decimal_number(std::string(1000, '9')), highest);
    EXPECT_EQ(decimal_number("-" + std::string(1000, '9')), lowest);
}

TEST(DecimalNumber, AgreesWithAtoiWhereThatIsDefined) {
    std::mt19937 random(1);
    const std::string alphabet = "0123456789 +-a\t,";
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto left = random() % 10; left > 0; --left) {
            text += alphabet[random() % alphabet.size()];
        }
        EXPECT_EQ(decimal_number(text), std::atoi(text.c_str())) << '"' << text << '"';
    }
}

TEST(DecimalNumber, EndsWithTheView) {
    EXPECT_EQ(decimal_number(std::string_view("1234").substr(0, 2)), 12);
}

}  // namespace
}  // namespace veltrancord
