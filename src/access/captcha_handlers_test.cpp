#include "access/captcha_handlers.h"

#include <gtest/gtest.h>

#include <string>

#include "leaf/clock.h"
#include "leaf/result.h"
#include "support/allocation_seam.h"
#include "support/handler_call.h"

namespace veltrancord {
namespace {

TEST(CaptchaHandlers, SayWhichPartOfTheArgumentIsMissing) {
    struct {
        command_handler* handler;
        const char* no_argument;
        const char* no_ampersand;
    } const rows[] = {
        {SetCaptcha_handle, "SetCaptcha_handle: NULL Captcha String !!\n",
         "SetCaptcha_handle: NULL Verify String !!\n"},
        {CompareCaptcha_handle, "CompareCaptcha_handle: NULL String !!\n",
         "CompareCaptcha_handle: Captcha Code NULL String !!\n"},
        {UpdateCaptchaTime_handle, "UpdateCapchaTime: NULL String !!\n",
         "UpdateCapchaTime: Captcha Code NULL String !!\n"},
        {DelCaptchaItem_handle, "DelCaptchaItem: NULL String !!\n",
         "DelCaptchaItem: Captcha Code NULL String !!\n"},
    };
    for (const auto& row : rows) {
        handler_call call;
        EXPECT_EQ(call.without_argument(row.handler), result_argument_absent);
        EXPECT_EQ(call.printed(), row.no_argument);
        EXPECT_EQ(call(row.handler, "secret"), result_argument_absent);
        EXPECT_EQ(call.printed(), row.no_ampersand);
        EXPECT_EQ(call(row.handler, ""), result_argument_absent);
        EXPECT_EQ(call.printed(), row.no_ampersand);
        EXPECT_EQ(call.sessions.captcha_count, 0);
    }
}

TEST(CaptchaHandlers, SetAndCompare) {
    handler_call call;
    EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
    EXPECT_FALSE(call.has_reply());
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abd"), result_captcha_wrong);
    EXPECT_EQ(call(CompareCaptcha_handle, "ix&abc"), result_not_found);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc&0"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc&no"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc&"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&&1"), result_captcha_wrong);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc&1"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc&1"), result_not_found);
    EXPECT_EQ(call.printed(), "");
}

TEST(CaptchaHandlers, AnyNumberButZeroRemoves) {
    for (const char* flag : {"1", "-1", "99999999999", " 7x"}) {
        handler_call call;
        EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
        EXPECT_EQ(call(CompareCaptcha_handle, std::string("id&abc&") + flag), result_ok);
        EXPECT_EQ(call.sessions.captcha_count, 0) << flag;
    }
}

// Ages of some seconds off the boundaries, since handlers run on the real clock.
TEST(CaptchaHandlers, LifetimesAreThirtyByDefaultAndFiveAtLeast) {
    struct {
        int64_t age;
        const char* fields;
        int32_t result;
    } const rows[] = {
        {25, "", result_ok},
        {30, "", result_captcha_expired},
        {25, "&0", result_ok},
        {30, "&0", result_captcha_expired},
        {2, "&0&1", result_ok},
        {2, "&0&-100", result_ok},
        {2, "&0&", result_ok},
        {2, "&0&4", result_ok},
        {5, "&0&1", result_captcha_expired},
        {5, "&0&5", result_captcha_expired},
        {5, "&0&", result_captcha_expired},
        {95, "&0&100", result_ok},
        {100, "&0&100", result_captcha_expired},
        {95, "&0&100&7", result_ok},
        {1000000, "&0&99999999999", result_ok},
    };
    for (const auto& row : rows) {
        handler_call call;
        ASSERT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
        call.sessions.captcha_list.begin()->time = wall_clock_seconds() - row.age;
        EXPECT_EQ(call(CompareCaptcha_handle, std::string("id&abc") + row.fields), row.result)
            << row.age << ' ' << row.fields;
    }
}

TEST(CaptchaHandlers, UpdateRefreshes) {
    handler_call call;
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&abc"), result_not_found);
    EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
    call.sessions.captcha_list.begin()->time = wall_clock_seconds() - 1000;
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc"), result_captcha_expired);
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&abd"), result_not_found);
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&abc"), result_ok);
    EXPECT_FALSE(call.has_reply());
    EXPECT_EQ(call(CompareCaptcha_handle, "id&abc"), result_ok);
}

TEST(CaptchaHandlers, DeletingNeverTellsWhetherItDid) {
    handler_call call;
    EXPECT_EQ(call(DelCaptchaItem_handle, "id&abc"), result_not_found);
    EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
    EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
    EXPECT_EQ(call(DelCaptchaItem_handle, "id&abd"), result_not_found);
    EXPECT_EQ(call.sessions.captcha_count, 2);
    EXPECT_EQ(call(DelCaptchaItem_handle, "id&abc"), result_not_found);
    EXPECT_EQ(call.sessions.captcha_count, 0);
    EXPECT_FALSE(call.has_reply());
    EXPECT_EQ(call.printed(), "");
}

TEST(CaptchaHandlers, ACaptchaWithAnAmpersandCanBeKeptButNotAnswered) {
    handler_call call;
    EXPECT_EQ(call(SetCaptcha_handle, "id&a&b"), result_ok);
    EXPECT_EQ(call.sessions.captcha_list.begin()->verify_code.view(), "id");
    EXPECT_EQ(call.sessions.captcha_list.begin()->captcha.view(), "a&b");
    EXPECT_EQ(call(CompareCaptcha_handle, "id&a&b"), result_captcha_wrong);
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&a&b"), result_ok);
    EXPECT_EQ(call(DelCaptchaItem_handle, "id&a&b"), result_not_found);
    EXPECT_EQ(call.sessions.captcha_count, 0);
}

TEST(CaptchaHandlers, EmptyFieldsAreTexts) {
    handler_call call;
    EXPECT_EQ(call(SetCaptcha_handle, "&"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "&"), result_ok);
    EXPECT_EQ(call(CompareCaptcha_handle, "&x"), result_captcha_wrong);
}

TEST(CaptchaHandlers, ReportMissingMemoryWithoutTheCaptcha) {
    const char* const messages[] = {
        "SetCaptcha_handle: allocate fail !!\n",
        "SetCaptcha_handle: strdup Captcha fail !!\n",
        "SetCaptcha_handle: strdup VerifyCode fail !!\n",
    };
    int number = 1;
    for (const char* const message : messages) {
        handler_call call;
        const failing_allocation failing(number++);
        EXPECT_EQ(call(SetCaptcha_handle, "id&secret"), result_too_large);
        EXPECT_EQ(call.printed(), message);
        EXPECT_EQ(call.sessions.captcha_count, 0);
    }
}

TEST(CaptchaHandlers, WipeTheirArgument) {
    const std::string argument = "id&secret";
    for (command_handler* const handler : {SetCaptcha_handle, CompareCaptcha_handle,
                                           UpdateCaptchaTime_handle, DelCaptchaItem_handle}) {
        handler_call call;
        call(handler, argument);
        EXPECT_EQ(call.argument(), std::string(argument.size(), '\0'));
    }
}

}  // namespace
}  // namespace veltrancord
