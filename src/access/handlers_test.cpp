#include "access/handlers.h"

#include <gtest/gtest.h>

#include <string>

#include "leaf/clock.h"
#include "leaf/result.h"
#include "support/account_document.h"
#include "support/allocation_seam.h"
#include "support/handler_call.h"

namespace veltrancord {
namespace {

constexpr const char* household =
    "<User1><Username>root</Username><Level>Admin</Level></User1>"
    "<User2><Username>joe</Username><Level>Operator</Level></User2>"
    "<User3><Username>ann</Username><Level>Retired</Level></User3>"
    "<User4><Username>two&amp;one</Username><Level>Admin</Level></User4>"
    "<Permission><Define>"
    "<Permit1 Type=\"Switch\" Value=\"NO\">Network</Permit1>"
    "<Permit2 Type=\"Channel\">Channels</Permit2>"
    "<Permit3>Untyped</Permit3>"
    "<Permit4 Type=\"Level\" Value=\"7\">Levels</Permit4>"
    "<Permit5 Type=\"Switch\">One&amp;Two</Permit5></Define>"
    "<Group1><Name>Admin</Name><Permit1>on</Permit1><Permit2>1,3,5</Permit2><Permit3>YES</Permit3>"
    "<Permit4>YES</Permit4><Permit5>YES</Permit5></Group1>"
    "<Group2><Name>Operator</Name><Permit1>1</Permit1><Permit2>1,-1</Permit2></Group2>"
    "<Group3><Name>POWER USER</Name><Permit1>YES</Permit1></Group3></Permission>"
    "<Cloud><Username>cloud</Username><POWERUSER><Username>sun</Username></POWERUSER></Cloud>"
    "<CGIPermitDenyFilter>"
    "<R1><RelatedPermit>Permit1</RelatedPermit><C1><CMD>format</CMD></C1>"
    "<C2><CMD>apply</CMD><P1>reboot</P1><P2>a&amp;b</P2></C2></R1>"
    "<R2><RelatedPermit>Permit2</RelatedPermit><C1><CMD>view</CMD></C1></R2>"
    "<R3><RelatedPermit>Permit3</RelatedPermit><C1><CMD>untyped</CMD></C1></R3>"
    "<R4><RelatedPermit>Permit4</RelatedPermit><C1><CMD>level</CMD></C1></R4>"
    "</CGIPermitDenyFilter>";

class PermitHandlers : public testing::Test {
  protected:
    PermitHandlers() : account_(household) { account_document::build_lists(); }

    int32_t ask(command_handler* handler, std::string_view argument) {
        const int32_t result = call(handler, argument);
        EXPECT_EQ(call.printed(), "") << argument;
        return result;
    }

    handler_call call;

  private:
    account_document account_;
};

TEST_F(PermitHandlers, AGroupIsAllowedOrDenied) {
    struct {
        const char* argument;
        int32_t result;
    } const rows[] = {
        {"Admin&Network", result_ok},
        {"Admin&Network&", result_ok},
        {"Operator&Network", result_denied},
        {"Admin&Channels&3", result_ok},
        {"Admin&Channels&4", result_denied},
        {"Admin&Channels", result_denied},
        {"Admin&Channels&3&4", result_ok},  // the rest is the argument, and begins with a 3
        {"Admin&Untyped", result_not_found},
        {"Admin&Levels", result_not_found},
        {"Admin&NoSuchPermit", result_not_found},
        {"Admin&network", result_not_found},
        {"Admin&Permit1", result_not_found},  // a key, no name
        {"Admin&", result_not_found},
        {"Operator&Untyped", result_not_found},
        {"Nobody&Network", result_denied},
        {"admin&Network", result_denied},
        {"&Network", result_denied},
        {"Admin&One&Two", result_not_found},  // its permit would be "One"
        {"Admin", result_denied},
        {"", result_denied},
        {"&", result_denied},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(isPermitAllow_handle, row.argument), row.result) << row.argument;
        EXPECT_FALSE(call.has_reply());
    }
    EXPECT_EQ(call.without_argument(isPermitAllow_handle), result_denied);
}

TEST_F(PermitHandlers, AUserIsAsGoodAsItsGroup) {
    struct {
        const char* argument;
        int32_t result;
    } const rows[] = {
        {"root&Network", result_ok},
        {"joe&Network", result_denied},
        {"root&Channels&5", result_ok},
        {"root&Channels", result_denied},
        {"root&Untyped", result_not_found},
        {"root&NoSuchPermit", result_not_found},
        {"ann&Network", result_denied},    // her group does not exist
        {"cloud&Network", result_denied},  // nor does SUPERVISOR here
        {"sun&Network", result_denied},    // nor does POWERUSER, though POWER USER does
        {"nobody&Network", result_denied},
        {"two&one&Network", result_denied},  // the user would be "two"
        {"&Network", result_denied},
        {"root", result_not_found},
        {"", result_not_found},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(isPermitAllowByUser_handle, row.argument), row.result) << row.argument;
        EXPECT_FALSE(call.has_reply());
    }
    EXPECT_EQ(call.without_argument(isPermitAllowByUser_handle), result_not_found);
}

TEST_F(PermitHandlers, APermitsValueIsReplied) {
    EXPECT_EQ(ask(getPermitValue_handle, "Admin&Channels"), 5);
    EXPECT_EQ(call.reply(), "1,3,5");
    EXPECT_EQ(ask(getPermitValue_handle, "Operator&Network"), 1);
    EXPECT_EQ(call.reply(), "1");
    EXPECT_EQ(ask(getPermitValue_handle, "Admin&One&Two"), 3);
    EXPECT_EQ(call.reply(), "YES");
    struct {
        const char* argument;
        int32_t result;
    } const rows[] = {
        {"Nobody&Network", result_denied},
        {"Admin&NoSuchPermit", result_not_found},
        {"Operator&Untyped", result_not_found},
        {"Admin&Network&", result_not_found},
        {"Admin&", result_not_found},
        {"Admin", result_not_found},
        {"", result_not_found},
        {"&", result_denied},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(getPermitValue_handle, row.argument), row.result) << row.argument;
        EXPECT_FALSE(call.has_reply());
    }
    EXPECT_EQ(call.without_argument(getPermitValue_handle), result_not_found);
}

TEST_F(PermitHandlers, AUsersGroupIsReplied) {
    EXPECT_EQ(ask(getGroupName_handle, "root"), 5);
    EXPECT_EQ(call.reply(), "Admin");
    EXPECT_EQ(ask(getGroupName_handle, "ann"), 7);
    EXPECT_EQ(call.reply(), "Retired");
    EXPECT_EQ(ask(getGroupName_handle, "cloud"), 10);
    EXPECT_EQ(call.reply(), "SUPERVISOR");
    EXPECT_EQ(ask(getGroupName_handle, "sun"), 9);
    EXPECT_EQ(call.reply(), "POWERUSER");
    EXPECT_EQ(ask(getGroupName_handle, "two&one"), 5);  // the whole argument is the user
    EXPECT_EQ(call.reply(), "Admin");
    for (const char* unknown : {"nobody", "", "root&", "root&Network", "Root"}) {
        EXPECT_EQ(ask(getGroupName_handle, unknown), result_denied) << unknown;
        EXPECT_FALSE(call.has_reply());
    }
    EXPECT_EQ(call.without_argument(getGroupName_handle), result_denied);
}

TEST_F(PermitHandlers, PermitsAreListedOneALine) {
    const std::string expected =
        "permit1=Network&type=Switch&value=NO\n"
        "permit2=Channels&type=Channel&value=(null)\n"
        "permit3=Untyped&type=(null)&value=(null)\n"
        "permit4=Levels&type=Level&value=7\n"
        "permit5=One&Two&type=Switch&value=(null)\n";
    for (const char* ignored : {"", "anything&at&all"}) {
        EXPECT_EQ(ask(listPermits_handle, ignored), static_cast<int32_t>(expected.size()));
        EXPECT_EQ(call.reply(), expected);
    }
    EXPECT_EQ(call.without_argument(listPermits_handle), static_cast<int32_t>(expected.size()));
}

TEST_F(PermitHandlers, CommandsThatARuleCatchesNeedItsPermit) {
    struct {
        const char* argument;
        int32_t result;
    } const rows[] = {
        {"root&format", result_ok},
        {"joe&format", result_denied},
        {"joe&format&", result_denied},
        {"joe&format&disk=1&force=2", result_denied},
        {"joe&apply&action=reboot_now", result_denied},
        {"root&apply&action=reboot_now", result_ok},
        {"joe&apply&action=save", result_ok},
        {"joe&apply", result_ok},
        {"joe&apply&x=a&b=1", result_denied},  // the "&" is part of the parameters
        {"root&view", result_ok},
        {"joe&view", result_denied},  // his channels hold a -1
        {"root&untyped", result_not_found},
        {"root&level", result_not_found},
        {"joe&untyped", result_denied},  // his group holds no value for that permit
        {"ann&format", result_denied},   // her group does not exist
        {"ann&unknown", result_ok},      // but a command without a rule needs none
        {"cloud&unknown", result_ok},
        {"cloud&format", result_denied},
        {"nobody&unknown", result_denied},
        {"nobody&format", result_denied},
        {"&unknown", result_denied},
        {"joe&", result_ok},
        {"joe&&reboot", result_ok},
        {"joe", result_not_found},
        {"", result_not_found},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(GetCGIPermitFilter_handle, row.argument), row.result) << row.argument;
        EXPECT_FALSE(call.has_reply());
    }
    EXPECT_EQ(call.without_argument(GetCGIPermitFilter_handle), result_not_found);
}

TEST(PermitListing, IsEmptyWithoutPermits) {
    handler_call call;
    EXPECT_EQ(call(listPermits_handle, ""), 0);
    EXPECT_EQ(call.reply(), "");
    EXPECT_EQ(call.printed(), "");
}

// Lines far longer than any buffer to begin with, and many of them.
TEST(PermitListing, GrowsWithTheList) {
    const std::string text(255, 'x');
    std::string permits;
    std::string expected;
    for (int number = 1; number <= 300; ++number) {
        const std::string name = "Permit" + std::to_string(number);
        permits += "<" + name + " Type=\"" + text + "\" Value=\"" + text + "\">" + text + "</" +
                   name + ">";
        expected += "permit" + std::to_string(number) + "=" + text + "&type=" + text +
                    "&value=" + text + "\n";
    }
    const account_document account("<Permission><MaxPermDefNum>300</MaxPermDefNum><Define>" +
                                   permits + "</Define></Permission>");
    account_document::build_lists();
    handler_call call;
    EXPECT_EQ(call(listPermits_handle, ""), static_cast<int32_t>(expected.size()));
    EXPECT_EQ(call.reply(), expected);
}

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

TEST(SessionHandlers, RefuseTextBeyondTheBoundAsMissingMemory) {
    handler_call call;
    call.sessions.max_text_size = 8;
    EXPECT_EQ(call(SetSession_handle, "123456789"), result_too_large);
    EXPECT_EQ(call.printed(), "SetSession_handle: allocate fail !!\n");
    EXPECT_EQ(call(SetCaptcha_handle, "id&1234567"), result_too_large);
    EXPECT_EQ(call.printed(), "SetCaptcha_handle: strdup VerifyCode fail !!\n");
    EXPECT_EQ(call(SetCaptcha_handle, "id&123456789"), result_too_large);
    EXPECT_EQ(call.printed(), "SetCaptcha_handle: strdup Captcha fail !!\n");
    EXPECT_EQ(call(SetSession_handle, "12345678"), result_ok);
}

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

TEST(CaptchaHandlers, UpdateSaysWhetherThereIsOne) {
    handler_call call;
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&abc"), result_not_found);
    EXPECT_EQ(call(SetCaptcha_handle, "id&abc"), result_ok);
    EXPECT_EQ(call(UpdateCaptchaTime_handle, "id&abc"), result_ok);
    EXPECT_FALSE(call.has_reply());
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

}  // namespace
}  // namespace veltrancord
