#include "server/dispatch.h"

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>

#include "leaf/termination.h"
#include "support/client_fixture.h"

namespace veltrancord {
namespace {

using namespace std::string_literals;

int32_t first_handler(connection_record& /*connection*/, command_argument /*argument*/,
                      int32_t /*row*/) {
    return 1;
}

int32_t second_handler(connection_record& /*connection*/, command_argument /*argument*/,
                       int32_t /*row*/) {
    return 2;
}

TEST(CommandIndex, ComparesNamesExactly) {
    const std::array<command_row, 2> rows = {
        {{"read", first_handler, ""}, {"readvalue", second_handler, ""}}};
    EXPECT_EQ(command_index(rows).find("read"), 0);
    EXPECT_EQ(command_index(rows).find("readvalue"), 1);
    EXPECT_EQ(command_index(rows).find("Read"), -1);
    EXPECT_EQ(command_index(rows).find("rea"), -1);
    EXPECT_EQ(command_index(rows).find("readv"), -1);
    EXPECT_EQ(command_index(rows).find("read "), -1);
    EXPECT_EQ(command_index(rows).find(""), -1);
}

TEST(CommandIndex, TakesTheFirstRowOfAName) {
    const std::array<command_row, 3> rows = {{{"other", first_handler, ""},
                                              {"twice", first_handler, ""},
                                              {"twice", second_handler, ""}}};
    EXPECT_EQ(command_index(rows).find("twice"), 1);
}

TEST(CommandIndex, PassesOverRowsWithoutAHandler) {
    const std::array<command_row, 2> rows = {
        {{"twice", nullptr, ""}, {"twice", second_handler, ""}}};
    EXPECT_EQ(command_index(rows).find("twice"), 1);
    EXPECT_EQ(command_index(std::span(rows).first(1)).find("twice"), -1);
}

class Dispatching : public one_client {};

TEST_F(Dispatching, GivesTheHandlerWhatStandsBehindTheFirstColon) {
    request("echo:a:b?c");
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_EQ(g_seen.argument, "a:b?c");
    EXPECT_EQ(g_seen.size, 5U);
    EXPECT_EQ(g_seen.row, 0);
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(Dispatching, GivesAnEmptyArgumentForAColonAlone) {
    EXPECT_EQ(request("echo:"), code_of(0));
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_EQ(g_seen.argument, "");
    EXPECT_FALSE(g_seen.absent);
}

TEST_F(Dispatching, ClosesWithoutAReplyWhenThereIsNoColon) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(request("echo"), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(g_seen.calls, 0);
    EXPECT_EQ(g_seen.follow_ups, "");
}

TEST_F(Dispatching, AnswersAnUnknownCommandAndFollowsNothingUp) {
    EXPECT_EQ(request("nothing:x"), "\xFC\xFF\xFF\xFF");
    EXPECT_EQ(g_seen.follow_ups, "");
}

TEST_F(Dispatching, ComparesNamesExactly) {
    EXPECT_EQ(request("Echo:x"), code_of(-4));
}

TEST_F(Dispatching, DoesNotTakeAnEmptyNameForACommand) {
    EXPECT_EQ(request(":x"), code_of(-4));
}

TEST_F(Dispatching, AnswersARowWithoutAHandlerAsUnknown) {
    EXPECT_EQ(request("empty:x"), code_of(-4));
}

TEST_F(Dispatching, TakesTheFirstRowOfAName) {
    EXPECT_EQ(request("code:7"), code_of(7));
    EXPECT_EQ(g_seen.row, 1);
}

TEST_F(Dispatching, LetsANulByteEndTheName) {
    EXPECT_EQ(request("echo\0:x"s), "");
    EXPECT_EQ(g_seen.calls, 0);
}

TEST_F(Dispatching, LetsANulByteEndTheArgumentText) {
    EXPECT_EQ(request("echo:a\0b"s), code_of(3) + "a\0b"s);
    EXPECT_EQ(g_seen.argument, "a");
    EXPECT_EQ(g_seen.size, 3U);
}

TEST_F(Dispatching, FollowsUpAfterAFailingHandlerToo) {
    EXPECT_EQ(request("code:-12"), code_of(-12));
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(Dispatching, FollowsUpBeforeTheReplyCanBeRead) {
    static int waiting_bytes;
    static int client_fd;
    waiting_bytes = -1;
    client_fd = client_.get();
    follow_ups_[1] = [] {
        char byte;
        waiting_bytes = static_cast<int>(::recv(client_fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK));
    };
    EXPECT_EQ(request("echo:x"), code_of(1) + "x");
    EXPECT_EQ(waiting_bytes, -1);  // nothing was there yet
}

// While the process is being terminated nothing is saved, and a client that held a reply would take
// its change for saved.
TEST_F(Dispatching, ReportsNoSuccessWhileTheProcessIsTerminated) {
    g_terminating.store(true);
    EXPECT_EQ(request("code:7"), "");
    g_terminating.store(false);
}

TEST_F(Dispatching, ReportsFailuresWhileTheProcessIsTerminated) {
    g_terminating.store(true);
    EXPECT_EQ(request("code:-12"), code_of(-12));
    g_terminating.store(false);
}

TEST_F(Dispatching, EndsOnlyTheRequestWhenMemoryRunsOutInAHandler) {
    EXPECT_EQ(request("throw:x"), code_of(-8));
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(Dispatching, SendsTheReplyWhenMemoryRunsOutInTheFollowUp) {
    follow_ups_[0] = [] { throw std::bad_alloc(); };
    EXPECT_EQ(request("echo:x"), code_of(1) + "x");
    EXPECT_EQ(g_seen.follow_ups, "2");
}

TEST_F(Dispatching, FollowsUpEvenWhenTheReplyCouldNotBeQueued) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(request("body:1001"), "");  // more than the body's bound of 1000
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "allocate pBuf == NULL !!\n");
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(Dispatching, FindsTheEndOfANameOfAnyLength) {
    const auto answer = [this](const std::string& payload) {
        std::string reply = request(payload);
        connect_again();
        return reply;
    };
    for (std::size_t length = 30; length <= 34; ++length) {
        const std::string name(length, 'n');
        EXPECT_EQ(answer(name + ":x"), code_of(-4)) << length;
        EXPECT_EQ(answer(name), "") << length;
        EXPECT_EQ(answer(name + std::string("\0:x", 3)), "") << length;
    }
    EXPECT_EQ(answer(std::string(100'000, 'n')), "");
    EXPECT_EQ(answer(std::string(100'000, 'n') + ":"), code_of(-4));
}

}  // namespace
}  // namespace veltrancord
