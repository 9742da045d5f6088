#include "server/dispatch.h"

#include <gtest/gtest.h>

#include <string>

#include "leaf/termination.h"
#include "support/exchange_fixture.h"

namespace veltrancord {
namespace {

using namespace std::string_literals;

class dispatching : public exchange {};

TEST_F(dispatching, gives_the_handler_what_stands_behind_the_first_colon) {
    request("echo:a:b?c");
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_EQ(g_seen.argument, "a:b?c");
    EXPECT_EQ(g_seen.size, 5U);
    EXPECT_EQ(g_seen.row, 0);
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(dispatching, gives_an_empty_argument_for_a_colon_alone) {
    EXPECT_EQ(request("echo:"), code_of(0));
    EXPECT_EQ(g_seen.calls, 1);
    EXPECT_EQ(g_seen.argument, "");
    EXPECT_FALSE(g_seen.absent);
}

TEST_F(dispatching, closes_without_a_reply_when_there_is_no_colon) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(request("echo"), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(g_seen.calls, 0);
    EXPECT_EQ(g_seen.follow_ups, "");
}

TEST_F(dispatching, answers_an_unknown_command_and_follows_nothing_up) {
    EXPECT_EQ(request("nothing:x"), "\xFC\xFF\xFF\xFF");
    EXPECT_EQ(g_seen.follow_ups, "");
}

TEST_F(dispatching, compares_names_exactly) {
    EXPECT_EQ(request("Echo:x"), code_of(-4));
}

TEST_F(dispatching, does_not_take_an_empty_name_for_a_command) {
    EXPECT_EQ(request(":x"), code_of(-4));
}

TEST_F(dispatching, answers_a_row_without_a_handler_as_unknown) {
    EXPECT_EQ(request("empty:x"), code_of(-4));
}

TEST_F(dispatching, takes_the_first_row_of_a_name) {
    EXPECT_EQ(request("code:7"), code_of(7));
    EXPECT_EQ(g_seen.row, 1);
}

TEST_F(dispatching, lets_a_nul_byte_end_the_name) {
    EXPECT_EQ(request("echo\0:x"s), "");
    EXPECT_EQ(g_seen.calls, 0);
}

TEST_F(dispatching, lets_a_nul_byte_end_the_argument_text) {
    EXPECT_EQ(request("echo:a\0b"s), code_of(3) + "a\0b"s);
    EXPECT_EQ(g_seen.argument, "a");
    EXPECT_EQ(g_seen.size, 3U);
}

TEST_F(dispatching, follows_up_after_a_failing_handler_too) {
    EXPECT_EQ(request("code:-12"), code_of(-12));
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(dispatching, follows_up_before_the_reply_can_be_read) {
    static int waiting_bytes;
    static int client_fd;
    waiting_bytes = -1;
    client_fd = client_.get();
    server_.follow_ups[1] = [] {
        char byte;
        waiting_bytes = static_cast<int>(::recv(client_fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK));
    };
    EXPECT_EQ(request("echo:x"), code_of(1) + "x");
    EXPECT_EQ(waiting_bytes, -1);  // nothing was there yet
}

// While the process is being terminated nothing is saved, and a client that held a reply would take
// its change for saved.
TEST_F(dispatching, reports_no_success_while_the_process_is_terminated) {
    g_terminating.store(true);
    EXPECT_EQ(request("code:7"), "");
    g_terminating.store(false);
}

TEST_F(dispatching, reports_failures_while_the_process_is_terminated) {
    g_terminating.store(true);
    EXPECT_EQ(request("code:-12"), code_of(-12));
    g_terminating.store(false);
}

TEST_F(dispatching, ends_only_the_request_when_memory_runs_out_in_a_handler) {
    EXPECT_EQ(request("throw:x"), code_of(-8));
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(dispatching, sends_the_reply_when_memory_runs_out_in_the_follow_up) {
    server_.follow_ups[0] = [] { throw std::bad_alloc(); };
    EXPECT_EQ(request("echo:x"), code_of(1) + "x");
    EXPECT_EQ(g_seen.follow_ups, "2");
}

TEST_F(dispatching, follows_up_even_when_the_reply_could_not_be_queued) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(request("body:1001"), "");  // more than the body's bound of 1000
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "allocate pBuf == NULL !!\n");
    EXPECT_EQ(g_seen.follow_ups, "12");
}

// Names end at the first ":" or NUL wherever it is; those near 32 bytes are looked for in two ways.
TEST_F(dispatching, finds_the_end_of_a_name_of_any_length) {
    const auto answer = [this](const std::string& payload) {
        std::string reply = request(payload);
        exchange_again();
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
    release();
}

}  // namespace
}  // namespace veltrancord
