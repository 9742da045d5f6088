#include "server/sender.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/exchange_fixture.h"

namespace veltrancord {
namespace {

using namespace std::string_literals;

class reply_writer : public exchange {};

TEST_F(reply_writer, sends_length_and_body) {
    EXPECT_EQ(request("echo:hello"), "\5\0\0\0hello"s);
}

TEST_F(reply_writer, sends_a_count_without_a_body_as_code_only) {
    EXPECT_EQ(request("code:7"), code_of(7));
}

TEST_F(reply_writer, sends_no_body_with_a_result_of_0) {
    EXPECT_EQ(request("body:0"), code_of(0));
}

TEST_F(reply_writer, sends_no_body_with_a_negative_result) {
    EXPECT_EQ(request("body:-12"), code_of(-12));
}

TEST_F(reply_writer, cuts_a_body_longer_than_the_result) {
    EXPECT_EQ(request("body:2"), code_of(2) + "ab");
}

TEST_F(reply_writer, fills_a_shorter_body_up_with_zero_bytes) {
    EXPECT_EQ(request("body:6"), code_of(6) + "abc\0\0\0"s);
}

TEST_F(reply_writer, sends_a_body_of_any_bytes) {
    const std::string any = "\0\1\xFF:?\n"s;
    EXPECT_EQ(request("echo:" + any), code_of(6) + any);
}

TEST_F(reply_writer, finishes_a_large_reply_over_several_writable_events) {
    const int small = 4096;
    ASSERT_EQ(::setsockopt(server_end_, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    std::string large;
    large.assign(300'000, 'q');
    connection_->result = static_cast<int32_t>(large.size());
    ASSERT_TRUE(connection_->reply.open(large.size()) && connection_->reply.append(large));
    ASSERT_EQ(queue_reply(*connection_), 0);
    write_reply(connection_);
    ASSERT_NE(connection_->write_event, nullptr);
    EXPECT_LT(connection_->written, large.size());
    std::string received;
    std::thread client([&] { received = receive_all(); });
    run_until_released();
    client.join();
    EXPECT_EQ(received, code_of(300'000) + large);
}

TEST_F(reply_writer, reports_a_client_that_is_gone_before_its_body) {
    send(request_frame_of("echo:hello"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result error : Broken pipe\n");
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(reply_writer, reports_a_client_that_is_gone_before_its_code) {
    send(request_frame_of("code:-12"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

TEST_F(reply_writer, reports_a_client_that_is_gone_before_it_is_told_of_an_unknown_command) {
    send(request_frame_of("nothing:"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

}  // namespace
}  // namespace veltrancord
