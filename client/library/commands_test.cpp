// The typed functions: what each sends, what it makes of the reply, what it refuses unsent.
#include <gtest/gtest.h>
#include <veltrancord/client.h>

#include <cstring>
#include <functional>
#include <string>

#include "fake_service.h"

namespace veltrancord::test {
namespace {

class Commands : public testing::Test {
  protected:
    Commands() : path_(directory_.socket_path()) {
        veltrancord_client_init(&client_);
        client_.socket_path = path_.c_str();
        client_.timeout_ms = -1;
    }

    // Runs `call` against a service that answers with `frame`. Return: the request that it got.
    std::string request_of(const std::string& frame, int32_t expected,
                           const std::function<int32_t(veltrancord_client*)>& call) {
        const fake_service service(path_, frame);
        EXPECT_EQ(call(&client_), expected);
        const auto requests = service.requests();
        return requests.size() == 1 ? requests.front() : "no request";
    }

    // Expects `call` to be refused; nothing listens, so that a connection would be told apart.
    void refused(int32_t expected, const std::function<int32_t(veltrancord_client*)>& call) {
        EXPECT_EQ(call(&client_), expected) << veltrancord_result_name(expected);
        EXPECT_EQ(client_.error.code, expected);
    }

    scratch_directory directory_;
    std::string path_;
    veltrancord_client client_;
    char text_[512];
    veltrancord_reply reply_ = VELTRANCORD_REPLY_INIT(text_, sizeof text_, 0);
};

TEST_F(Commands, GetCutsTheFillingBehindASecret) {
    const std::string filled = std::string("plain") + std::string(11, '\0');
    EXPECT_EQ(request_of(reply_frame(16, filled), 5,
                         [&](auto* client) {
                             return veltrancord_get(client, "Account.User1.Password", text_,
                                                    sizeof text_);
                         }),
              "readvalue:Account.User1.Password");
    EXPECT_STREQ(text_, "plain");
}

TEST_F(Commands, Reads) {
    const std::string frame = reply_frame(4, "a=b\n");
    EXPECT_EQ(request_of(frame, 4, [&](auto* c) { return veltrancord_read(c, "A.*", &reply_); }),
              "read:A.*");
    EXPECT_EQ(
        request_of(frame, 4, [&](auto* c) { return veltrancord_read_visible(c, "A.*", &reply_); }),
        "readAndFilter:A.*");
    EXPECT_EQ(
        request_of(frame, 4,
                   [&](auto* c) { return veltrancord_read_with_level(c, "A&B.*", -2, &reply_); }),
        "readwithlevel:A&B.*&-2");
    EXPECT_EQ(request_of(frame, 4,
                         [&](auto* c) { return veltrancord_read_attributes(c, "A.#", &reply_); }),
              "readattr:A.#");
    EXPECT_EQ(
        request_of(reply_frame(0), 0, [&](auto* c) { return veltrancord_read(c, "A.*", &reply_); }),
        "read:A.*");
    EXPECT_STREQ(reply_.text, "");
}

TEST_F(Commands, GetAttribute) {
    EXPECT_EQ(
        request_of(reply_frame(1, "3"), 1,
                   [&](auto* c) { return veltrancord_get_attribute(c, "A.B.Level", text_, 2); }),
        "readsingleattr:A.B.Level");
    EXPECT_STREQ(text_, "3");
}

TEST_F(Commands, WritesSeveralLinesAtOnce) {
    const veltrancord_setting settings[] = {{"A.B", "1"}, {"A.C", "x=y"}, {"D", ""}};
    EXPECT_EQ(
        request_of(reply_frame(3), 3, [&](auto* c) { return veltrancord_write(c, settings, 3); }),
        "write:A.B=1\nA.C=x=y\nD=\n");
    EXPECT_EQ(request_of(reply_frame(2), 2,
                         [&](auto* c) { return veltrancord_write_memory(c, settings, 2); }),
              "writedbmem:A.B=1\nA.C=x=y\n");
    EXPECT_EQ(request_of(reply_frame(1), 1,
                         [&](auto* c) { return veltrancord_write_attributes(c, settings, 1); }),
              "writeattr:A.B=1\n");
    EXPECT_EQ(
        request_of(reply_frame(1), 1, [&](auto* c) { return veltrancord_set(c, "A.B", "2"); }),
        "write:A.B=2\n");
}

TEST_F(Commands, WritesMoreThanTheRequestsOwnRoom) {
    const std::string value(4095, 'v');
    const std::vector<veltrancord_setting> settings(300, {"A.B", value.c_str()});
    std::string expected = "write:";
    for (std::size_t line = 0; line < settings.size(); ++line) {
        expected.append("A.B=").append(value).append("\n");
    }
    EXPECT_EQ(request_of(reply_frame(300), 300,
                         [&](auto* c) { return veltrancord_write(c, settings.data(), 300); }),
              expected);
}

TEST_F(Commands, RefusesWhatWouldBeMisread) {
    refused(VELTRANCORD_VALUE_HAS_LINE_FEED,
            [](auto* c) { return veltrancord_set(c, "A.B", "1\nA.C=2"); });
    refused(VELTRANCORD_PATH_HAS_EQUALS, [](auto* c) { return veltrancord_set(c, "A=B", "1"); });
    refused(VELTRANCORD_PATH_HAS_LINE_FEED,
            [](auto* c) { return veltrancord_set(c, "A\nB", "1"); });
    refused(VELTRANCORD_PATH_EMPTY, [](auto* c) { return veltrancord_set(c, "...", "1"); });
    refused(VELTRANCORD_INVALID_USE, [](auto* c) { return veltrancord_set(c, nullptr, "1"); });
    refused(VELTRANCORD_INVALID_USE, [](auto* c) { return veltrancord_set(c, "A", nullptr); });
    refused(VELTRANCORD_INVALID_USE, [](auto* c) { return veltrancord_write(c, nullptr, 0); });
    refused(VELTRANCORD_INVALID_USE, [](auto* c) { return veltrancord_get(c, "A.B", nullptr, 0); });
    const veltrancord_setting settings[] = {{"A.B", "1"}, {"A.C", "a\nb"}};
    refused(VELTRANCORD_VALUE_HAS_LINE_FEED,
            [&](auto* c) { return veltrancord_write(c, settings, 2); });
    EXPECT_EQ(client_.error.index, 1U);
}

// What each call names when it fails, here for want of a service.
TEST_F(Commands, FailuresNameWhatTheyAreAbout) {
    const auto subject_of = [&](const std::function<int32_t(veltrancord_client*)>& call) {
        const fake_service service(path_, reply_frame(-4));
        EXPECT_EQ(call(&client_), VELTRANCORD_NOT_FOUND);
        return std::string(client_.error.subject);
    };
    const veltrancord_setting two[] = {{"A.B", "1"}, {"A.C", "2"}};
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_get(c, "A.B", text_, 9); }), "A.B");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_read(c, "A.*", &reply_); }), "A.*");
    EXPECT_EQ(
        subject_of([&](auto* c) { return veltrancord_read_with_level(c, "A.B", 1, &reply_); }),
        "A.B");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_write(c, two, 1); }), "A.B");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_write(c, two, 2); }),
              "one of 2 settings from A.B on");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_remove(c, "A.B"); }), "A.B");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_upload(c, "/some/file"); }),
              "/some/file");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_group_may(c, "g", "p", nullptr); }),
              "p");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_permit_value(c, "g", "p", text_, 9); }),
              "p");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_user_group(c, "u", text_, 9); }), "u");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_check_session(c, "token", 60); }), "");
    EXPECT_EQ(subject_of([&](auto* c) { return veltrancord_set_captcha(c, "code", "x"); }), "");
}

TEST_F(Commands, ARefusedSettingIsNamedAndItsValueIsNot) {
    const veltrancord_setting settings[] = {{"A.B", "1"}, {"A.Password", "secret\n"}};
    EXPECT_EQ(veltrancord_write(&client_, settings, 2), VELTRANCORD_VALUE_HAS_LINE_FEED);
    char text[100];
    const std::size_t length = veltrancord_error_text(&client_, text, sizeof text);
    EXPECT_EQ(length, std::strlen(text));
    EXPECT_STREQ(text, "A.Password: a value cannot hold a line feed");
}

TEST_F(Commands, ASubjectIsCutToWholeCharactersAndOneLine) {
    refused(VELTRANCORD_PATH_HAS_LINE_FEED,
            [](auto* c) { return veltrancord_set(c, "A\nB\033[2J", "1"); });
    EXPECT_STREQ(client_.error.subject, "A?B?[2J");
    std::string kept(VELTRANCORD_MAX_SUBJECT - 4, 'x');
    const std::string long_path = kept + "ää" + std::string(400, 'y');
    refused(VELTRANCORD_PATH_OVER_BOUND,
            [&](auto* c) { return veltrancord_set(c, long_path.c_str(), "1"); });
    EXPECT_EQ(client_.error.subject, kept + "...");
    kept.append(4, 'z');
    refused(VELTRANCORD_UNREACHABLE,
            [&](auto* c) { return veltrancord_get(c, kept.c_str(), text_, sizeof text_); });
    EXPECT_EQ(client_.error.subject, path_);
}

struct bound_case {
    int32_t code;
    std::size_t bound;
    std::function<int32_t(veltrancord_client*, const char*)> call;
};

TEST_F(Commands, HoldsEveryBoundExactly) {
    const bound_case cases[] = {
        {VELTRANCORD_PATH_OVER_BOUND, 511,
         [&](auto* c, auto* text) { return veltrancord_read(c, text, &reply_); }},
        {VELTRANCORD_PATH_OVER_BOUND, 255,
         [](auto* c, auto* text) { return veltrancord_set(c, text, "1"); }},
        {VELTRANCORD_VALUE_OVER_BOUND, 4095,
         [](auto* c, auto* text) { return veltrancord_set(c, "A.B", text); }},
        {VELTRANCORD_VALUE_OVER_BOUND, 183,
         [](auto* c, auto* text) { return veltrancord_set(c, "A.pAssWord", text); }},
        {VELTRANCORD_ATTRIBUTE_OVER_BOUND, 255,
         [](auto* c, auto* text) {
             const veltrancord_setting setting = {"A.B.Level", text};
             return veltrancord_write_attributes(c, &setting, 1);
         }},
        {VELTRANCORD_ATTRIBUTE_OVER_BOUND, 63,
         [&](auto* c, auto* text) {
             return veltrancord_read_attributes(c, std::string("A.").append(text).c_str(), &reply_);
         }},
        {VELTRANCORD_FILE_NAME_OVER_BOUND, 255,
         [](auto* c, auto* text) { return veltrancord_upload(c, text); }},
        {VELTRANCORD_FILE_NAME_OVER_BOUND, 255,
         [](auto* c, auto* text) { return veltrancord_download(c, text); }},
        {VELTRANCORD_FILE_NAME_OVER_BOUND, 127,
         [](auto* c, auto* text) { return veltrancord_restore(c, text); }},
        {VELTRANCORD_FILE_NAME_OVER_BOUND, 127,
         [](auto* c, auto* text) { return veltrancord_sync_file(c, text); }},
        {VELTRANCORD_FIELD_OVER_BOUND, 256,
         [](auto* c, auto* text) { return veltrancord_backup(c, text); }},
    };
    for (const bound_case& bound : cases) {
        const std::string fits(bound.bound, 'x');
        EXPECT_EQ(bound.call(&client_, fits.c_str()), VELTRANCORD_UNREACHABLE) << bound.bound;
        const std::string over(bound.bound + 1, 'x');
        EXPECT_EQ(bound.call(&client_, over.c_str()), bound.code) << bound.bound;
        EXPECT_EQ(client_.error.bound, bound.bound);
        EXPECT_EQ(client_.error.found, bound.bound + 1);
    }
    // Escaped, each blank of the name takes three bytes.
    refused(VELTRANCORD_ATTRIBUTE_OVER_BOUND, [&](auto* c) {
        return veltrancord_get_attribute(c, std::string("A.").append(22, ' ').c_str(), text_, 9);
    });
    EXPECT_EQ(client_.error.found, 66U);
}

TEST_F(Commands, Documents) {
    const std::string done = reply_frame(0);
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_upload(c, "/f"); }),
              "upload:/f");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_restore(c, "/f"); }),
              "restore:/f");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_sync_file(c, "/f"); }),
              "syncxml:/f");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_download(c, "/f"); }),
              "download:/f");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_remove(c, "A.*"); }),
              "remove:A.*");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_remove(c, ".*"); }),
              "remove:.*");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_sync_memory(c); }),
              "syncmemtoflash:");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_backup(c, "now"); }),
              "XMLDBCallBack:now");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_backup(c, nullptr); }),
              "XMLDBCallBack:");
    refused(VELTRANCORD_FIELD_EMPTY, [](auto* c) { return veltrancord_upload(c, ""); });
}

TEST_F(Commands, Permits) {
    const std::string done = reply_frame(0);
    EXPECT_EQ(
        request_of(done, 0, [](auto* c) { return veltrancord_group_may(c, "g", "p", nullptr); }),
        "isPermitAllow:g&p");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_user_may(c, "u", "p", "3&4"); }),
              "isPermitAllowByUser:u&p&3&4");
    EXPECT_EQ(
        request_of(reply_frame(-12), VELTRANCORD_DENIED,
                   [](auto* c) { return veltrancord_user_may_cgi(c, "u", "apply", "a=1&b=2"); }),
        "GetCGIPermitFilter:u&apply&a=1&b=2");
    EXPECT_EQ(request_of(reply_frame(3, "1,3"), 3,
                         [&](auto* c) { return veltrancord_permit_value(c, "g", "p", text_, 9); }),
              "getPermitValue:g&p");
    EXPECT_STREQ(text_, "1,3");
    EXPECT_EQ(request_of(done, 0,
                         [&](auto* c) { return veltrancord_permit_value(c, "g", "p", text_, 9); }),
              "getPermitValue:g&p");
    EXPECT_STREQ(text_, "");
    EXPECT_EQ(request_of(reply_frame(1, "G"), 1,
                         [&](auto* c) { return veltrancord_user_group(c, "u&v", text_, 9); }),
              "getGroupName:u&v");
    EXPECT_EQ(request_of(done, 0, [&](auto* c) { return veltrancord_list_permits(c, &reply_); }),
              "listPermits:");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_sync_permits(c); }),
              "SyncPermit:");
    refused(VELTRANCORD_FIELD_HAS_SEPARATOR,
            [](auto* c) { return veltrancord_group_may(c, "a&b", "p", nullptr); });
    refused(VELTRANCORD_FIELD_HAS_SEPARATOR,
            [](auto* c) { return veltrancord_user_may(c, "a", "p&q", nullptr); });
}

TEST_F(Commands, SessionsAndCaptchas) {
    const std::string done = reply_frame(0);
    const int32_t usual = VELTRANCORD_DEFAULT_LIFETIME;
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_set_session(c, "s"); }),
              "SetSession:s");
    EXPECT_EQ(
        request_of(done, 0, [&](auto* c) { return veltrancord_check_session(c, "s", usual); }),
        "CheckSession:s");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_check_session(c, "s", 90); }),
              "CheckSession:s&90");
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_set_captcha(c, "v", "c"); }),
              "SetCaptcha:v&c");
    EXPECT_EQ(
        request_of(reply_frame(2), VELTRANCORD_CAPTCHA_WRONG,
                   [&](auto* c) { return veltrancord_compare_captcha(c, "v", "c", 0, usual); }),
        "CompareCaptcha:v&c&0");
    EXPECT_EQ(request_of(reply_frame(1), VELTRANCORD_CAPTCHA_EXPIRED,
                         [](auto* c) { return veltrancord_compare_captcha(c, "v", "c", 9, 60); }),
              "CompareCaptcha:v&c&1&60");
    EXPECT_EQ(client_.error.code, VELTRANCORD_CAPTCHA_EXPIRED);
    EXPECT_EQ(request_of(done, 0, [](auto* c) { return veltrancord_refresh_captcha(c, "v", "c"); }),
              "UpdateCaptchaTime:v&c");
    EXPECT_EQ(request_of(reply_frame(-4), 0,
                         [](auto* c) { return veltrancord_delete_captcha(c, "v", "c"); }),
              "DelCaptchaItem:v&c");
    EXPECT_EQ(client_.error.code, 0);
    refused(VELTRANCORD_FIELD_EMPTY, [](auto* c) { return veltrancord_set_session(c, ""); });
    refused(VELTRANCORD_FIELD_HAS_SEPARATOR,
            [](auto* c) { return veltrancord_set_session(c, "a&9"); });
    refused(VELTRANCORD_FIELD_HAS_SEPARATOR,
            [](auto* c) { return veltrancord_set_captcha(c, "v", "a&1"); });
}

// A program that forgets about the two answers of their own, and takes what is not below 0 for yes.
TEST_F(Commands, NoAnswerButAMatchPassesForOne) {
    for (const int32_t answer : {1, 2, 3, 1000000, -4, -9, -12}) {
        const fake_service service(path_, reply_frame(answer));
        const int32_t result = veltrancord_compare_captcha(&client_, "v", "c", 1, 30);
        EXPECT_LT(result, 0) << answer;
        EXPECT_EQ(client_.error.code, result);
    }
}

TEST_F(Commands, LinesOfAReply) {
    const char* cursor = "A.B=1\nA.C=x=y\nsecond line\nA.D=";
    std::string seen;
    veltrancord_line line;
    while (veltrancord_next_line(&cursor, &line) != 0) {
        seen.append("[").append(line.key, line.key_length);
        seen.append("|").append(line.value, line.value_length).append("]");
    }
    EXPECT_EQ(seen, "[A.B|1][A.C|x=y][|second line][A.D|]");
}

TEST(ResultText, EveryResultHasItsOwn) {
    EXPECT_STREQ(veltrancord_result_text(VELTRANCORD_DENIED),
                 "denied, or an unknown user or group");
    EXPECT_STREQ(veltrancord_result_name(VELTRANCORD_NOT_FOUND), "NOT_FOUND");
    EXPECT_EQ(veltrancord_result_name(-2), nullptr);
    EXPECT_STREQ(veltrancord_result_text(-2), "result of the service");
}

}  // namespace
}  // namespace veltrancord::test
