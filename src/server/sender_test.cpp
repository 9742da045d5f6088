#include "server/sender.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/exchange_fixture.h"

namespace veltrancord {
namespace {

using namespace std::string_literals;

class ReplyWriter : public exchange {};

TEST_F(ReplyWriter, SendsLengthAndBody) {
    EXPECT_EQ(request("echo:hello"), "\5\0\0\0hello"s);
}

TEST_F(ReplyWriter, SendsACountWithoutABodyAsCodeOnly) {
    EXPECT_EQ(request("code:7"), code_of(7));
}

TEST_F(ReplyWriter, SendsNoBodyWithAResultOf0) {
    EXPECT_EQ(request("body:0"), code_of(0));
}

TEST_F(ReplyWriter, SendsNoBodyWithANegativeResult) {
    EXPECT_EQ(request("body:-12"), code_of(-12));
}

TEST_F(ReplyWriter, CutsABodyLongerThanTheResult) {
    EXPECT_EQ(request("body:2"), code_of(2) + "ab");
}

TEST_F(ReplyWriter, FillsAShorterBodyUpWithZeroBytes) {
    EXPECT_EQ(request("body:6"), code_of(6) + "abc\0\0\0"s);
}

TEST_F(ReplyWriter, SendsABodyOfAnyBytes) {
    const std::string any = "\0\1\xFF:?\n"s;
    EXPECT_EQ(request("echo:" + any), code_of(6) + any);
}

TEST_F(ReplyWriter, FinishesALargeReplyOverSeveralWritableEvents) {
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

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItsBody) {
    send(request_frame_of("echo:hello"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result error : Broken pipe\n");
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItsCode) {
    send(request_frame_of("code:-12"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItIsToldOfAnUnknownCommand) {
    send(request_frame_of("nothing:"));
    client_.reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(do_read(*connection_), read_outcome::over);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

}  // namespace
}  // namespace veltrancord
