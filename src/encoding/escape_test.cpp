#include "encoding/escape.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord {
namespace {

// Runs a coder into a buffer of exactly `size` bytes, so that a byte too many is seen.
template <typename Coder>
std::string Run(Coder coder, std::size_t size, std::string_view in) {
    std::vector<char> out(size, '#');
    EXPECT_EQ(coder(out.data(), size, in), out.data());
    return out.data();
}

std::string Encode(std::string_view in, std::size_t size = 512) {
    return Run(url_encode, size, in);
}
std::string Decode(std::string_view in, std::size_t size = 768) {
    return Run(url_decode, size, in);
}

TEST(Escape, EncodesAllButLettersDigitsMinusDotAndStar) {
    EXPECT_EQ(Encode("a b_c"), "a_20b_5Fc");
    EXPECT_EQ(Encode("azAZ09-.*"), "azAZ09-.*");
    EXPECT_EQ(Encode("+/%#\n"), "_2B_2F_25_23_0A");
    EXPECT_EQ(Encode("\x80\xFF"), "_80_FF");
    EXPECT_EQ(Encode(""), "");
}

TEST(Escape, DropsAnEscapeThatDoesNotFitWhole) {
    EXPECT_EQ(Encode("a b_c", 4), "a");
    EXPECT_EQ(Encode("a b_c", 5), "a_20");
    EXPECT_EQ(Encode("a b_c", 6), "a_20b");
    EXPECT_EQ(Encode("abc", 3), "ab");
    EXPECT_EQ(Encode("abc", 1), "");
    EXPECT_EQ(Encode(" ", 1), "");
    // The text ends at the escape that does not fit, even where what follows would.
    EXPECT_EQ(Encode(" b", 3), "");
}

TEST(Escape, DecodesEscapesOfEitherCaseAndPlus) {
    EXPECT_EQ(Decode("x_4a+y_zz"), "xJ y_zz");
    EXPECT_EQ(Decode("_4A_4a"), "JJ");
    EXPECT_EQ(Decode("a_20b_5Fc"), "a b_c");
    EXPECT_EQ(Decode("_"), "_");
    EXPECT_EQ(Decode("_4"), "_4");
    EXPECT_EQ(Decode("__41"), "_A");
    EXPECT_EQ(Decode("_g1_1g"), "_g1_1g");
    EXPECT_EQ(Decode("_FF"), "\xFF");
}

TEST(Escape, DecodingIsBounded) {
    EXPECT_EQ(Decode("abc", 3), "ab");
    EXPECT_EQ(Decode("_41_42_43", 3), "AB");
    EXPECT_EQ(Decode("abc", 1), "");
}

TEST(Escape, BothEndAtANul) {
    EXPECT_EQ(Encode(std::string_view("a\0b", 3)), "a");
    EXPECT_EQ(Decode(std::string_view("a\0b", 3)), "a");
    EXPECT_EQ(Decode(std::string_view("_4\0", 3)), "_4");
}

TEST(Escape, DecodingGivesBackWhatWasEncoded) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 60, '\0');
        for (char& c : text) {
            c = static_cast<char>(random() % 255 + 1);
        }
        const std::string encoded = Encode(text);
        EXPECT_EQ(Decode(encoded), text);
        EXPECT_EQ(encoded.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                            "0123456789-.*_"),
                  std::string::npos);
        const std::size_t size = random() % 40 + 1;
        const std::string cut = Encode(text, size);
        EXPECT_LT(cut.size(), size);
        EXPECT_EQ(encoded.substr(0, cut.size()), cut);
        EXPECT_LE(Decode(encoded, size).size(), size - 1);
    }
}

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
