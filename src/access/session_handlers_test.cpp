#include "access/session_handlers.h"

#include <gtest/gtest.h>

#include <string>

#include "leaf/clock.h"
#include "leaf/result.h"
#include "support/allocation_seam.h"
#include "support/handler_call.h"

namespace veltrancord {
namespace {

TEST(SessionHandlers, SayWhenThereIsNoArgument) {
    handler_call call;
    EXPECT_EQ(call.without_argument(SetSession_handle), result_argument_absent);
    EXPECT_EQ(call.printed(), "SetSession_handle: NULL Session String !!\n");
    EXPECT_EQ(call.without_argument(CheckSession_handle), result_argument_absent);
    EXPECT_EQ(call.printed(), "CheckSession_handle: NULL String !!\n");
    EXPECT_EQ(call.sessions.session_count, 0);
}

TEST(SessionHandlers, SetAndCheck) {
    handler_call call;
    EXPECT_EQ(call(CheckSession_handle, "tok"), result_not_found);
    EXPECT_EQ(call(SetSession_handle, "tok"), result_ok);
    EXPECT_FALSE(call.has_reply());
    EXPECT_EQ(call(CheckSession_handle, "tok"), result_ok);
    EXPECT_FALSE(call.has_reply());
    EXPECT_EQ(call(CheckSession_handle, "tok&600"), result_ok);
    EXPECT_EQ(call(CheckSession_handle, "tok&0"), result_not_found);
    EXPECT_EQ(call(CheckSession_handle, "tok&-5"), result_not_found);
    EXPECT_EQ(call(CheckSession_handle, "tok&"), result_not_found);
    EXPECT_EQ(call(CheckSession_handle, "tok&long"), result_not_found);
    EXPECT_EQ(call(CheckSession_handle, "tok&600&1"), result_ok);
    EXPECT_EQ(call(CheckSession_handle, "tok&99999999999"), result_ok);
    EXPECT_EQ(call(CheckSession_handle, "other"), result_not_found);
    EXPECT_EQ(call.printed(), "");
}

TEST(SessionHandlers, AnEmptyTextIsAnArgument) {
    handler_call call;
    EXPECT_EQ(call(CheckSession_handle, ""), result_not_found);
    EXPECT_EQ(call(SetSession_handle, ""), result_ok);
    EXPECT_EQ(call(CheckSession_handle, ""), result_ok);
    EXPECT_EQ(call(CheckSession_handle, "&600"), result_ok);
}

TEST(SessionHandlers, TheWholeTextIsTheToken) {
    handler_call call;
    EXPECT_EQ(call(SetSession_handle, "a&600"), result_ok);
    EXPECT_EQ(call.sessions.session_list.begin()->session.view(), "a&600");
    EXPECT_EQ(call(CheckSession_handle, "a&600"), result_not_found);
}

TEST(SessionHandlers, TheTextEndsAtANulByte) {
    handler_call call;
    EXPECT_EQ(call(SetSession_handle, std::string_view("tok\0en", 6)), result_ok);
    EXPECT_EQ(call(CheckSession_handle, "tok"), result_ok);
}

TEST(SessionHandlers, TheDefaultLifetimeIsAMinute) {
    handler_call call;
    EXPECT_EQ(call(SetSession_handle, "tok"), result_ok);
    // Some seconds off the boundary, since this runs on the real clock.
    call.sessions.session_list.begin()->created = wall_clock_seconds() - 50;
    EXPECT_EQ(call(CheckSession_handle, "tok"), result_ok);
    call.sessions.session_list.begin()->created = wall_clock_seconds() - 60;
    EXPECT_EQ(call(CheckSession_handle, "tok"), result_not_found);
}

TEST(SessionHandlers, ReportMissingMemoryWithoutTheToken) {
    for (int number = 1; number <= 2; ++number) {
        handler_call call;
        const failing_allocation failing(number);
        EXPECT_EQ(call(SetSession_handle, "secret-token"), result_too_large);
        EXPECT_EQ(call.printed(), "SetSession_handle: allocate fail !!\n");
        EXPECT_EQ(call.sessions.session_count, 0);
    }
}

TEST(SessionHandlers, WipeTheirArgument) {
    handler_call call;
    const std::string token = "secret-token&60";
    for (command_handler* const handler : {SetSession_handle, CheckSession_handle}) {
        call(handler, token);
        EXPECT_EQ(call.argument(), std::string(token.size(), '\0'));
    }
}

}  // namespace
}  // namespace veltrancord
