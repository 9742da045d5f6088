#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "access/session_lists.h"
#include "leaf/result.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

constexpr int64_t t = 1'700'000'000;

int32_t length(const session_lists& lists) {
    int32_t count = 0;
    for ([[maybe_unused]] const CaptchaItem& item : lists.captcha_list) {
        ++count;
    }
    return count;
}

void add(session_lists& lists, std::string_view verify_code, std::string_view captcha,
         int64_t now = t) {
    ASSERT_EQ(add_captcha(lists, verify_code, captcha, now), captcha_addition::added);
}

int32_t compare(session_lists& lists, std::string_view verify_code, std::string_view captcha,
                int64_t now, bool remove = false, int32_t lifetime = default_captcha_lifetime) {
    return compare_captcha(lists, {verify_code, captcha, remove, lifetime}, now);
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
    EXPECT_EQ(length(lists), 1);
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
    EXPECT_EQ(length(lists), 60);
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
    EXPECT_EQ(length(lists), 2);
    EXPECT_EQ(compare(lists, "id", "other", t), result_ok);
    EXPECT_EQ(compare(lists, "ix", "abc", t), result_ok);
    remove_captchas(lists, "nobody", "abc");
    EXPECT_EQ(lists.captcha_count, 2);
    // Appending still works behind a removed last element.
    add(lists, "z", "1");
    EXPECT_EQ(compare(lists, "z", "1", t), result_ok);
}

TEST(CaptchaList, TellsWhichAllocationFailed) {
    session_lists lists;
    add(lists, "id", "abc");
    const captcha_addition failures[] = {captcha_addition::no_item, captcha_addition::no_captcha,
                                         captcha_addition::no_verify_code};
    int number = 1;
    for (const captcha_addition failure : failures) {
        const failing_allocation failing(number++);
        EXPECT_EQ(add_captcha(lists, "new", "xyz", t), failure);
        EXPECT_EQ(lists.captcha_count, 1);
        EXPECT_EQ(length(lists), 1);
    }
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
