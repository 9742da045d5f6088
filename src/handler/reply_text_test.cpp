#include "handler/reply_text.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace veltrancord {
namespace {

TEST(ReplyText, IsClosedAtFirst) {
    reply_text text;
    EXPECT_FALSE(text.is_open());
    EXPECT_EQ(text.view(), "");
    EXPECT_FALSE(text.append("x"));
    EXPECT_TRUE(text.extend(1).empty());
    EXPECT_FALSE(text.reserve(1));
}

TEST(ReplyText, IsABodyAsSoonAsItIsOpened) {
    reply_text text;
    ASSERT_TRUE(text.open(10));
    EXPECT_TRUE(text.is_open());
    EXPECT_EQ(text.size(), 0U);
    EXPECT_EQ(text.bound(), 10U);
}

TEST(ReplyText, KeepsOfAFrameThatIsMostlySentOnlyTheRest) {
    reply_text text;
    ASSERT_TRUE(text.open(100'000));
    ASSERT_TRUE(text.append(std::string(90'000, 'a') + std::string(10'000, 'b')));
    const std::string frame(text.frame(100'000));
    EXPECT_FALSE(text.drop_sent(0));
    EXPECT_FALSE(text.drop_sent(50'003));
    EXPECT_EQ(text.frame(100'000), frame);
    EXPECT_TRUE(text.drop_sent(50'004));
    EXPECT_EQ(text.view(), frame.substr(50'004));
    EXPECT_TRUE(text.is_open());
    ASSERT_TRUE(text.open(100'000));
    ASSERT_TRUE(text.append(std::string(frame.substr(4))));
    static_cast<void>(text.frame(100'000));
    EXPECT_TRUE(text.drop_sent(100'004));
    EXPECT_EQ(text.view(), "");
    EXPECT_TRUE(text.is_open());
}

TEST(ReplyText, TakesAsMuchAsItsBoundAndNotAByteMore) {
    reply_text text;
    ASSERT_TRUE(text.open(5));
    EXPECT_TRUE(text.append("1234"));
    EXPECT_FALSE(text.append("56"));
    EXPECT_EQ(text.view(), "1234");
    EXPECT_TRUE(text.append("5"));
    EXPECT_FALSE(text.append("6"));
    EXPECT_TRUE(text.append(""));
    EXPECT_EQ(text.view(), "12345");
}

TEST(ReplyText, TakesNothingWithABoundOf0) {
    reply_text text;
    ASSERT_TRUE(text.open(0));
    EXPECT_TRUE(text.is_open());
    EXPECT_FALSE(text.append("x"));
    EXPECT_EQ(text.frame(0), std::string_view("\0\0\0\0", 4));
}

TEST(ReplyText, KeepsItsContentWhenItGrows) {
    reply_text text;
    ASSERT_TRUE(text.open(100'000));
    std::string expected;
    for (int piece = 0; piece < 10'000; ++piece) {
        const std::string digits = std::to_string(piece);
        ASSERT_TRUE(text.append(digits));
        expected += digits;
    }
    EXPECT_EQ(text.view(), expected);
}

TEST(ReplyText, AllocatesForTheTextAndNotForTheBound) {
    const struct mallinfo2 before = ::mallinfo2();
    reply_text text;
    ASSERT_TRUE(text.open(std::size_t{512} * 1024 * 1024));
    ASSERT_TRUE(text.append("value"));
    const struct mallinfo2 after = ::mallinfo2();
    EXPECT_LT(after.uordblks + after.hblkhd, before.uordblks + before.hblkhd + 4096);
}

TEST(ReplyText, DoesNotWrapAroundAtTheLargestBound) {
    reply_text text;
    ASSERT_TRUE(text.open(std::numeric_limits<std::size_t>::max()));
    EXPECT_TRUE(text.append("x"));
    EXPECT_TRUE(text.extend(std::numeric_limits<std::size_t>::max()).empty());
    EXPECT_EQ(text.view(), "x");
}

TEST(ReplyText, ExtendsByZeroBytesWhereOtherTextStood) {
    reply_text text;
    ASSERT_TRUE(text.open(100));
    ASSERT_TRUE(text.append("abcdef"));
    text.truncate(2);
    const std::span<char> added = text.extend(4);
    ASSERT_EQ(added.size(), 4U);
    EXPECT_EQ(text.view(), std::string_view("ab\0\0\0\0", 6));
    added[3] = 'z';
    EXPECT_EQ(text.view(), std::string_view("ab\0\0\0z", 6));
}

TEST(ReplyText, ExtendsUpToItsBound) {
    reply_text text;
    ASSERT_TRUE(text.open(300));
    EXPECT_EQ(text.extend(300).size(), 300U);
    EXPECT_TRUE(text.extend(1).empty());
}

TEST(ReplyText, AppendsAllPiecesOrNone) {
    reply_text text;
    EXPECT_FALSE(text.append_all("a", "b"));  // not open
    ASSERT_TRUE(text.open(300));
    const std::string long_piece(290, 'x');
    ASSERT_TRUE(text.append_all("key", "=", std::string_view(), long_piece, "\n"));
    EXPECT_EQ(text.view(), "key=" + long_piece + "\n");
    EXPECT_FALSE(text.append_all("123", "456"));  // one byte more than the bound
    EXPECT_EQ(text.size(), 295U);
    EXPECT_TRUE(text.append_all("12", "345"));
    EXPECT_EQ(text.size(), 300U);
    EXPECT_TRUE(text.append_all("", ""));
    EXPECT_TRUE(text.view().ends_with("\n12345"));
}

TEST(ReplyText, TakesWhatWasWrittenIntoItsRoom) {
    reply_text text;
    EXPECT_EQ(text.room(1), nullptr);  // not open
    ASSERT_TRUE(text.open(1000));
    ASSERT_TRUE(text.append("key="));
    char* const room = text.room(900);
    ASSERT_NE(room, nullptr);
    std::memset(room, 'x', 900);
    EXPECT_EQ(text.view(), "key=");
    text.take(3);
    EXPECT_EQ(text.view(), "key=xxx");
    EXPECT_EQ(text.room(994), nullptr);  // one byte more than the bound
    EXPECT_NE(text.room(993), nullptr);
    EXPECT_EQ(text.view(), "key=xxx");
}

TEST(ReplyText, KeepsToItsBoundInALargeBlock) {
    constexpr std::size_t bound = 5'000'000;
    reply_text text;
    ASSERT_TRUE(text.open(bound));
    std::string expected;
    while (expected.size() + 1000 <= bound) {
        const std::string piece(1000, static_cast<char>('a' + expected.size() / 1000 % 26));
        ASSERT_TRUE(text.append(piece));
        expected += piece;
    }
    EXPECT_FALSE(text.append("x"));
    EXPECT_EQ(text.room(1), nullptr);
    EXPECT_EQ(text.view(), expected);
    EXPECT_TRUE(text.drop_sent(4'000'004));
    EXPECT_EQ(text.view(), expected.substr(4'000'000));
}

TEST(ReplyText, TruncatesToNoMoreThanItHas) {
    reply_text text;
    ASSERT_TRUE(text.open(10));
    ASSERT_TRUE(text.append("abc"));
    text.truncate(4);
    EXPECT_EQ(text.view(), "abc");
    text.truncate(0);
    EXPECT_EQ(text.view(), "");
    EXPECT_TRUE(text.is_open());
}

TEST(ReplyText, AppendsWithoutMovingWhatWasReserved) {
    reply_text text;
    ASSERT_TRUE(text.open(10'000));
    ASSERT_TRUE(text.reserve(5'000));
    const char* const begin = text.view().data();
    ASSERT_TRUE(text.append(std::string(5'000, 'x')));
    EXPECT_EQ(text.view().data(), begin);
    EXPECT_FALSE(text.reserve(10'001));
}

TEST(ReplyText, FramesTheResultAndTheTextBehindIt) {
    reply_text text;
    ASSERT_TRUE(text.open(10));
    ASSERT_TRUE(text.append("hello"));
    EXPECT_EQ(text.frame(5), std::string_view("\5\0\0\0hello", 9));
    EXPECT_EQ(text.frame(-12), std::string_view("\xF4\xFF\xFF\xFFhello", 9));
    EXPECT_EQ(text.view(), "hello");
}

TEST(ReplyText, MovesWithItsTextAndLeavesAClosedOne) {
    reply_text first;
    ASSERT_TRUE(first.open(10));
    ASSERT_TRUE(first.append("abc"));
    reply_text second(std::move(first));
    EXPECT_EQ(second.view(), "abc");
    EXPECT_FALSE(first.is_open());  // NOLINT(bugprone-use-after-move): closed is the promise
    EXPECT_FALSE(first.append("x"));
    reply_text third;
    third = std::move(second);
    EXPECT_EQ(third.view(), "abc");
    EXPECT_EQ(third.bound(), 10U);
}

TEST(ReplyText, BeginsAfreshWhenItIsOpenedAgain) {
    reply_text text;
    ASSERT_TRUE(text.open(10));
    ASSERT_TRUE(text.append("abc"));
    ASSERT_TRUE(text.open(2));
    EXPECT_EQ(text.view(), "");
    EXPECT_FALSE(text.append("abc"));
    text.close();
    EXPECT_FALSE(text.is_open());
}

}  // namespace
}  // namespace veltrancord
