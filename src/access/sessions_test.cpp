#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "access/session_lists.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

constexpr int64_t t = 1'700'000'000;
constexpr int32_t lifetime = default_session_lifetime;

int32_t length(const session_lists& lists) {
    int32_t count = 0;
    for ([[maybe_unused]] const SessionItem& item : lists.session_list) {
        ++count;
    }
    return count;
}

TEST(SessionList, AnEmptyListHoldsNoSession) {
    const session_lists lists;
    EXPECT_FALSE(is_session_valid(lists, "tok", lifetime, t));
    EXPECT_FALSE(is_session_valid(lists, "", lifetime, t));
}

TEST(SessionList, ASessionIsValidUntilItsLifetimeHasPassed) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", t));
    EXPECT_TRUE(is_session_valid(lists, "tok", lifetime, t));
    EXPECT_TRUE(is_session_valid(lists, "tok", lifetime, t + 59));
    EXPECT_FALSE(is_session_valid(lists, "tok", lifetime, t + 60));
    EXPECT_FALSE(is_session_valid(lists, "tok", lifetime, t + 61));
}

TEST(SessionList, EachCheckBringsItsOwnLifetime) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", t));
    EXPECT_TRUE(is_session_valid(lists, "tok", 1, t));
    EXPECT_FALSE(is_session_valid(lists, "tok", 1, t + 1));
    EXPECT_TRUE(is_session_valid(lists, "tok", 600, t + 599));
    EXPECT_FALSE(is_session_valid(lists, "tok", 600, t + 600));
    EXPECT_FALSE(is_session_valid(lists, "tok", 0, t));
    EXPECT_FALSE(is_session_valid(lists, "tok", -5, t));
    // Before the time at which it was set, after the clock was set back, it still has not expired.
    EXPECT_TRUE(is_session_valid(lists, "tok", 0, t - 1));
}

TEST(SessionList, CheckingDoesNotRefresh) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", t));
    EXPECT_TRUE(is_session_valid(lists, "tok", lifetime, t + 59));
    EXPECT_FALSE(is_session_valid(lists, "tok", lifetime, t + 60));
    EXPECT_EQ(length(lists), 1);
    EXPECT_TRUE(is_session_valid(lists, "tok", 1000, t + 999));
}

TEST(SessionList, TimesNeedMoreThan32Bits) {
    constexpr int32_t longest = std::numeric_limits<int32_t>::max();
    constexpr int32_t shortest = std::numeric_limits<int32_t>::min();
    const int64_t late = int64_t{1} << 40;
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", late));
    EXPECT_TRUE(is_session_valid(lists, "tok", longest, late + longest - 1));
    EXPECT_FALSE(is_session_valid(lists, "tok", longest, late + longest));
    EXPECT_FALSE(is_session_valid(lists, "tok", shortest, late));
}

TEST(SessionList, TokensAreComparedExactly) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "Token", t));
    for (const char* other : {"token", "Toke", "Tokens", "", "oken", "TokeN"}) {
        EXPECT_FALSE(is_session_valid(lists, other, lifetime, t)) << other;
    }
    EXPECT_TRUE(is_session_valid(lists, "Token", lifetime, t));
}

TEST(SessionList, AnEmptyTokenIsOne) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "", t));
    EXPECT_TRUE(is_session_valid(lists, "", lifetime, t));
}

TEST(SessionList, AnExpiredEntryIsPassedOver) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", t));
    ASSERT_TRUE(add_session(lists, "tok", t + 100));
    EXPECT_EQ(lists.session_count, 2);
    EXPECT_TRUE(is_session_valid(lists, "tok", lifetime, t + 159));
    EXPECT_FALSE(is_session_valid(lists, "tok", lifetime, t + 160));
}

TEST(SessionList, TheFiftyFirstDropsTheOldest) {
    session_lists lists;
    for (int number = 1; number <= 50; ++number) {
        ASSERT_TRUE(add_session(lists, "tok" + std::to_string(number), t));
    }
    EXPECT_EQ(lists.session_count, 50);
    EXPECT_TRUE(is_session_valid(lists, "tok1", lifetime, t));

    ASSERT_TRUE(add_session(lists, "tok51", t));
    EXPECT_EQ(lists.session_count, 50);
    EXPECT_EQ(length(lists), 50);
    EXPECT_FALSE(is_session_valid(lists, "tok1", lifetime, t));
    EXPECT_TRUE(is_session_valid(lists, "tok2", lifetime, t));
    EXPECT_TRUE(is_session_valid(lists, "tok51", lifetime, t));
}

TEST(SessionList, AFailedAllocationChangesNothing) {
    for (int number = 1; number <= 2; ++number) {
        session_lists lists;
        for (int count = 0; count < max_sessions; ++count) {
            ASSERT_TRUE(add_session(lists, "tok" + std::to_string(count), t));
        }
        const failing_allocation failing(number);
        EXPECT_FALSE(add_session(lists, "new", t));
        EXPECT_TRUE(failing_allocation::reached());
        EXPECT_EQ(lists.session_count, max_sessions);
        EXPECT_EQ(length(lists), max_sessions);
        EXPECT_TRUE(is_session_valid(lists, "tok0", lifetime, t));
        EXPECT_FALSE(is_session_valid(lists, "new", lifetime, t));
    }
}

TEST(SessionList, ADroppedTokenIsWiped) {
    session_lists lists;
    const std::string secret = "a-token-of-some-length";
    ASSERT_TRUE(add_session(lists, secret, t));
    const freed_block block(lists.session_list.begin()->session.view().data(), secret.size());
    for (int number = 0; number < max_sessions; ++number) {
        ASSERT_TRUE(add_session(lists, "other", t));
    }
    ASSERT_TRUE(freed_block::freed());
    EXPECT_EQ(freed_block::content(), std::string(secret.size(), '\0'));
}

TEST(SessionList, InitialisingEmptiesBothLists) {
    session_lists lists;
    ASSERT_TRUE(add_session(lists, "tok", t));
    ASSERT_EQ(add_captcha(lists, "id", "abc", t), captcha_addition::added);
    init_session_lists(lists);
    EXPECT_EQ(lists.session_count, 0);
    EXPECT_EQ(lists.captcha_count, 0);
    EXPECT_TRUE(lists.session_list.empty());
    EXPECT_TRUE(lists.captcha_list.empty());
}

}  // namespace
}  // namespace veltrancord
