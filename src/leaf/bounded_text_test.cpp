#include "leaf/bounded_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace veltrancord {
namespace {

TEST(bounded_text, keeps_a_text_of_one_less_than_the_field) {
    char field[8];
    EXPECT_TRUE(copy_bounded(field, "1234567"));
    EXPECT_STREQ(field, "1234567");
}

TEST(bounded_text, cuts_a_text_as_long_as_the_field) {
    char field[8];
    EXPECT_FALSE(copy_bounded(field, "12345678"));
    EXPECT_STREQ(field, "1234567");
}

TEST(bounded_text, leaves_nothing_of_an_earlier_content) {
    char field[8];
    std::memset(field, 'x', sizeof field);
    EXPECT_TRUE(copy_bounded(field, "ab"));
    EXPECT_EQ(std::string(field, sizeof field), std::string("ab\0\0\0\0\0\0", 8));
}

TEST(bounded_text, takes_an_empty_text_without_memory) {
    char field[2] = {'x', 'x'};
    EXPECT_TRUE(copy_bounded(field, std::string_view()));
    EXPECT_EQ(std::string(field, sizeof field), std::string("\0\0", 2));
}

TEST(bounded_text, copies_only_what_the_view_names) {
    char field[8];
    EXPECT_TRUE(copy_bounded(field, std::string_view("abcdef", 3)));
    EXPECT_STREQ(field, "abc");
}

}  // namespace
}  // namespace veltrancord
