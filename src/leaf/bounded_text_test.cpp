#include "leaf/bounded_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace veltrancord {
namespace {

TEST(BoundedText, KeepsATextOfOneLessThanTheField) {
    char field[8];
    EXPECT_TRUE(copy_bounded(field, "1234567"));
    EXPECT_STREQ(field, "1234567");
}

TEST(BoundedText, CutsATextAsLongAsTheField) {
    char field[8];
    EXPECT_FALSE(copy_bounded(field, "12345678"));
    EXPECT_STREQ(field, "1234567");
}

TEST(BoundedText, LeavesNothingOfAnEarlierContent) {
    char field[8];
    std::memset(field, 'x', sizeof field);
    EXPECT_TRUE(copy_bounded(field, "ab"));
    EXPECT_EQ(std::string(field, sizeof field), std::string("ab\0\0\0\0\0\0", 8));
}

TEST(BoundedText, TakesAnEmptyTextWithoutMemory) {
    char field[2] = {'x', 'x'};
    EXPECT_TRUE(copy_bounded(field, std::string_view()));
    EXPECT_EQ(std::string(field, sizeof field), std::string("\0\0", 2));
}

TEST(BoundedText, CopiesOnlyWhatTheViewNames) {
    char field[8];
    EXPECT_TRUE(copy_bounded(field, std::string_view("abcdef", 3)));
    EXPECT_STREQ(field, "abc");
}

}  // namespace
}  // namespace veltrancord
