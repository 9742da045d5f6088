#include "access/sessions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "leaf/result.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

constexpr int64_t t = 1'700'000'000;
constexpr int32_t lifetime = default_session_lifetime;

template <class T>
int32_t length(const tail_queue<T>& list) {
    int32_t count = 0;
    for ([[maybe_unused]] const T& item : list) {
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
    EXPECT_EQ(length(lists.session_list), 1);
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
    for (const char* other : {"token", "Toke", "Tokens", "", "oken", "TokeN", "nekoT"}) {
        EXPECT_FALSE(is_session_valid(lists, other, lifetime, t)) << other;
    }
    EXPECT_TRUE(is_session_valid(lists, "Token", lifetime, t));
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
    EXPECT_EQ(length(lists.session_list), 50);
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
        EXPECT_EQ(length(lists.session_list), max_sessions);
        EXPECT_TRUE(is_session_valid(lists, "tok0", lifetime, t));
        EXPECT_FALSE(is_session_valid(lists, "new", lifetime, t));
    }
}

// Also of what must not be told apart by accident: equal lengths, equal halves, equal ends.
TEST(SessionList, TokensOfOneLengthAreToldApart) {
    session_lists lists;
    const std::string token = "0123456789abcdef0123456789abcdef";
    ASSERT_TRUE(add_session(lists, token, t));
    for (std::size_t at = 0; at < token.size(); ++at) {
        std::string other = token;
        other[at] ^= 1;
        EXPECT_FALSE(is_session_valid(lists, other, lifetime, t)) << at;
    }
    EXPECT_TRUE(is_session_valid(lists, token, lifetime, t));
}

TEST(SessionList, TextBeyondTheBoundOfBothListsIsRefused) {
    session_lists lists;
    EXPECT_EQ(lists.max_text_size, 32U << 20U);
    lists.max_text_size = 100;
    ASSERT_EQ(add_captcha(lists, "id", std::string(58, 'c'), t), captcha_addition::added);
    EXPECT_FALSE(add_session(lists, std::string(41, 's'), t));
    ASSERT_TRUE(add_session(lists, std::string(40, 's'), t));
    EXPECT_EQ(lists.text_size, 100U);
    EXPECT_FALSE(add_session(lists, "x", t));
    EXPECT_TRUE(add_session(lists, "", t));
    EXPECT_EQ(add_captcha(lists, "", "x", t), captcha_addition::no_captcha);
    EXPECT_EQ(add_captcha(lists, "x", "", t), captcha_addition::no_verify_code);
    EXPECT_EQ(length(lists.captcha_list), 1);
    EXPECT_TRUE(is_session_valid(lists, std::string(40, 's'), lifetime, t));

    // What goes makes room, on every way on which a captcha goes.
    EXPECT_EQ(compare_captcha(lists, {"id", std::string(58, 'c'), true}, t), result_ok);
    ASSERT_EQ(add_captcha(lists, "i", std::string(59, 'c'), t), captcha_addition::added);
    remove_captchas(lists, "i", std::string(59, 'c'));
    EXPECT_EQ(lists.text_size, 40U);
    EXPECT_TRUE(add_session(lists, std::string(60, 's'), t));
    init_session_lists(lists);
    EXPECT_TRUE(add_session(lists, std::string(100, 's'), t));
}

TEST(SessionList, TheOldestOfAFullListMakesRoom) {
    session_lists lists;
    lists.max_text_size = 50;
    for (int number = 1; number <= max_sessions; ++number) {
        ASSERT_TRUE(add_session(lists, "x", t));
    }
    EXPECT_TRUE(add_session(lists, "y", t));
    EXPECT_FALSE(add_session(lists, "yy", t)) << "the oldest gives one byte back";
    EXPECT_EQ(lists.text_size, 50U);
    EXPECT_EQ(lists.session_count, max_sessions);
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

void add(session_lists& lists, std::string_view verify_code, std::string_view captcha,
         int64_t now = t) {
    ASSERT_EQ(add_captcha(lists, verify_code, captcha, now), captcha_addition::added);
}

int32_t compare(session_lists& lists, std::string_view verify_code, std::string_view captcha,
                int64_t now, bool remove = false, int32_t within = default_captcha_lifetime) {
    return compare_captcha(lists, {verify_code, captcha, remove, within}, now);
}

TEST(CaptchaList, ComparesWithTheCaptchaOfTheVerifyCode) {
    session_lists lists;
    add(lists, "id", "abc");
    EXPECT_EQ(compare(lists, "id", "abc", t), result_ok);
    for (const char* wrong : {"", "ab", "abcd", "ABC", "id"}) {
        EXPECT_EQ(compare(lists, "id", wrong, t), result_captcha_wrong) << wrong;
    }
    for (const char* unknown : {"", "i", "idd", "ID", "abc"}) {
        EXPECT_EQ(compare(lists, unknown, "abc", t), result_not_found) << unknown;
    }
}

TEST(CaptchaList, ACaptchaIsValidUntilItsLifetimeHasPassed) {
    session_lists lists;
    add(lists, "id", "abc");
    add(lists, "other", "abc");
    EXPECT_EQ(compare(lists, "id", "abc", t + 29), result_ok);
    EXPECT_EQ(compare(lists, "other", "abc", t + 30), result_captcha_expired);
    // Wrong is wrong, also when it has expired.
    EXPECT_EQ(compare(lists, "other", "xyz", t + 1000), result_captcha_wrong);
}

TEST(CaptchaList, AMatchRefreshesAndAnExpiredOneDoesNot) {
    session_lists lists;
    add(lists, "id", "abc");
    EXPECT_EQ(compare(lists, "id", "abc", t + 29), result_ok);
    EXPECT_EQ(compare(lists, "id", "abc", t + 58), result_ok);
    EXPECT_EQ(compare(lists, "id", "abc", t + 88), result_captcha_expired);
    EXPECT_EQ(compare(lists, "id", "abc", t + 89), result_captcha_expired);
    EXPECT_EQ(length(lists.captcha_list), 1);
    // What has expired for one lifetime need not have for another.
    EXPECT_EQ(compare(lists, "id", "abc", t + 89, false, 60), result_ok);
}

TEST(CaptchaList, AUsedUpCaptchaIsGone) {
    session_lists lists;
    add(lists, "id", "abc");
    EXPECT_EQ(compare(lists, "id", "xyz", t, true), result_captcha_wrong);
    EXPECT_EQ(compare(lists, "id", "abc", t + 30, true), result_captcha_expired);
    EXPECT_EQ(lists.captcha_count, 1);
    EXPECT_EQ(compare(lists, "id", "abc", t, true), result_ok);
    EXPECT_EQ(lists.captcha_count, 0);
    EXPECT_TRUE(lists.captcha_list.empty());
    EXPECT_EQ(compare(lists, "id", "abc", t, true), result_not_found);
}

TEST(CaptchaList, AnOlderOtherCaptchaOfTheCodeDecides) {
    session_lists lists;
    add(lists, "id", "old");
    add(lists, "id", "new");
    EXPECT_EQ(compare(lists, "id", "new", t), result_captcha_wrong);
    EXPECT_EQ(compare(lists, "id", "old", t), result_ok);
    EXPECT_EQ(compare(lists, "id", "old", t + 1000), result_captcha_wrong)
        << "expired, and then the newer one differs";
}

TEST(CaptchaList, AnExpiredMatchIsPassedOver) {
    session_lists lists;
    add(lists, "id", "abc", t);
    add(lists, "id", "abc", t + 100);
    EXPECT_EQ(compare(lists, "id", "abc", t + 129), result_ok);
    // The second was refreshed, the first was not.
    EXPECT_EQ(lists.captcha_list.begin()->time, t);
    EXPECT_EQ(compare(lists, "id", "abc", t + 158), result_ok);
    EXPECT_EQ(compare(lists, "id", "abc", t + 188), result_captcha_expired);
}

TEST(CaptchaList, TheSixtyFirstDropsTheOldest) {
    session_lists lists;
    for (int number = 1; number <= 60; ++number) {
        add(lists, "id" + std::to_string(number), "abc");
    }
    EXPECT_EQ(lists.captcha_count, 60);
    EXPECT_EQ(compare(lists, "id1", "abc", t), result_ok);
    add(lists, "id61", "abc");
    EXPECT_EQ(lists.captcha_count, 60);
    EXPECT_EQ(length(lists.captcha_list), 60);
    EXPECT_EQ(compare(lists, "id1", "abc", t), result_not_found);
    EXPECT_EQ(compare(lists, "id2", "abc", t), result_ok);
    EXPECT_EQ(compare(lists, "id61", "abc", t), result_ok);
}

TEST(CaptchaList, RefreshesTheFirstWithBothTexts) {
    session_lists lists;
    add(lists, "id", "abc", t);
    add(lists, "id", "abc", t);
    EXPECT_FALSE(refresh_captcha(lists, "id", "abd", t + 20));
    EXPECT_FALSE(refresh_captcha(lists, "ix", "abc", t + 20));
    EXPECT_TRUE(refresh_captcha(lists, "id", "abc", t + 20));
    auto item = lists.captcha_list.begin();
    EXPECT_EQ(item->time, t + 20);
    EXPECT_EQ((++item)->time, t);
    // Also one that has long expired: refreshing knows no lifetime.
    EXPECT_TRUE(refresh_captcha(lists, "id", "abc", t + 5000));
    EXPECT_EQ(compare(lists, "id", "abc", t + 5029), result_ok);
}

TEST(CaptchaList, RefreshesPastAnOtherCaptchaOfTheCode) {
    session_lists lists;
    add(lists, "id", "old");
    add(lists, "id", "new");
    EXPECT_TRUE(refresh_captcha(lists, "id", "new", t + 9));
    EXPECT_EQ(lists.captcha_list.begin()->time, t);
}

TEST(CaptchaList, RemovesEveryOneWithBothTexts) {
    session_lists lists;
    add(lists, "id", "abc");
    add(lists, "id", "other");
    add(lists, "id", "abc");
    add(lists, "ix", "abc");
    add(lists, "id", "abc");
    remove_captchas(lists, "id", "abc");
    EXPECT_EQ(lists.captcha_count, 2);
    EXPECT_EQ(length(lists.captcha_list), 2);
    EXPECT_EQ(compare(lists, "id", "other", t), result_ok);
    EXPECT_EQ(compare(lists, "ix", "abc", t), result_ok);
    remove_captchas(lists, "nobody", "abc");
    EXPECT_EQ(lists.captcha_count, 2);
    // Appending still works behind a removed last element.
    add(lists, "z", "1");
    EXPECT_EQ(compare(lists, "z", "1", t), result_ok);
}

TEST(CaptchaList, AUsedUpCaptchaIsWiped) {
    session_lists lists;
    const std::string secret = "what-the-user-must-type";
    add(lists, "id", secret);
    const freed_block block(lists.captcha_list.begin()->captcha.view().data(), secret.size());
    EXPECT_EQ(compare(lists, "id", secret, t, true), result_ok);
    ASSERT_TRUE(freed_block::freed());
    EXPECT_EQ(freed_block::content(), std::string(secret.size(), '\0'));
}

}  // namespace
}  // namespace veltrancord
