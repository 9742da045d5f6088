#include "access/owned_text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

TEST(OwnedText, IsAbsentUntilAssigned) {
    owned_text text;
    EXPECT_TRUE(text.absent());
    EXPECT_EQ(text.view().data(), nullptr);
    EXPECT_FALSE(text.equals(""));
}

TEST(OwnedText, HoldsAnEmptyText) {
    owned_text text;
    ASSERT_TRUE(text.assign(""));
    EXPECT_FALSE(text.absent());
    EXPECT_TRUE(text.equals(""));
    EXPECT_FALSE(text.equals("a"));
}

TEST(OwnedText, CopiesAndReplaces) {
    std::string source = "first";
    owned_text text;
    ASSERT_TRUE(text.assign(source));
    source = "other";
    EXPECT_EQ(text.view(), "first");
    ASSERT_TRUE(text.assign("second text"));
    EXPECT_EQ(text.view(), "second text");
    EXPECT_FALSE(text.equals("second"));
    EXPECT_FALSE(text.equals("Second text"));
    const owned_text moved = std::move(text);
    EXPECT_EQ(moved.view(), "second text");
}

TEST(OwnedText, KeepsWhatItHoldsWhenMemoryCannotBeHad) {
    owned_text text;
    ASSERT_TRUE(text.assign("first"));
    const failing_allocation failing(1);
    EXPECT_FALSE(text.assign("second"));
    EXPECT_EQ(text.view(), "first");
}

TEST(OwnedText, WipesWhatItFrees) {
    const std::string secret = "0123456789abcdef-token";
    {
        owned_text text;
        ASSERT_TRUE(text.assign(secret));
        const freed_block block(text.view().data(), secret.size());
        ASSERT_TRUE(text.assign("short"));
        ASSERT_TRUE(freed_block::freed());
        EXPECT_EQ(freed_block::content(), std::string(secret.size(), '\0'));
    }
    auto text = std::make_unique<owned_text>();
    ASSERT_TRUE(text->assign(secret));
    const freed_block block(text->view().data(), secret.size());
    text.reset();
    ASSERT_TRUE(freed_block::freed());
    EXPECT_EQ(freed_block::content(), std::string(secret.size(), '\0'));
}

TEST(ConstantTimeComparison, FindsEveryDifferenceAtEveryPlace) {
    for (std::size_t length = 0; length <= 40; ++length) {
        const std::string text(length, 'a');
        EXPECT_TRUE(equals_in_constant_time(text, std::string(length, 'a')));
        EXPECT_FALSE(equals_in_constant_time(text, text + "a"));
        EXPECT_FALSE(equals_in_constant_time(text + "a", text));
        for (std::size_t at = 0; at < length; ++at) {
            for (const char other : {'b', 'A', '\0', '\x7f', '\xff', '\xe1'}) {
                std::string different = text;
                different[at] = other;
                EXPECT_FALSE(equals_in_constant_time(text, different)) << length << ' ' << at;
                EXPECT_FALSE(equals_in_constant_time(different, text)) << length << ' ' << at;
            }
        }
    }
}

}  // namespace
}  // namespace veltrancord
