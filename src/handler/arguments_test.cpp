#include "handler/arguments.h"

#include <gtest/gtest.h>

namespace veltrancord {
namespace {

TEST(ArgumentFields, CutsAtTheFirstAmpersand) {
    EXPECT_EQ(cut_at_ampersand("").first, "");
    EXPECT_FALSE(cut_at_ampersand("").rest);
    EXPECT_EQ(cut_at_ampersand("abc").first, "abc");
    EXPECT_FALSE(cut_at_ampersand("abc").rest);
    EXPECT_EQ(cut_at_ampersand("a&b&c").first, "a");
    EXPECT_EQ(cut_at_ampersand("a&b&c").rest, "b&c");
    EXPECT_EQ(cut_at_ampersand("&b").first, "");
    EXPECT_EQ(cut_at_ampersand("&b").rest, "b");
    EXPECT_EQ(cut_at_ampersand("a&").first, "a");
    EXPECT_EQ(cut_at_ampersand("a&").rest, "");
}

}  // namespace
}  // namespace veltrancord
