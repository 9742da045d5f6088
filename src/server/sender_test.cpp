#include "server/sender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>

#include "support/client_fixture.h"

namespace {

int g_sluggish_fd = -1;  // takes one byte a call, or is interrupted
bool g_interrupted = false;
int g_calls = 0;

}  // namespace

// The program's own stands before the C library's.
extern "C" ssize_t send(int fd, const void* bytes, std::size_t size, int flags) {
    if (fd != g_sluggish_fd) {
        return ::sendto(fd, bytes, size, flags, nullptr, 0);
    }
    ++g_calls;
    if (g_interrupted) {
        errno = EINTR;
        return -1;
    }
    return ::sendto(fd, bytes, std::min<std::size_t>(size, 1), flags, nullptr, 0);
}

namespace veltrancord {
namespace {

using namespace std::string_literals;

class ReplyWriter : public one_client {};

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
    send(request_frame_of("fill:300000"));
    serve_client();
    ASSERT_NE(connection_->write_event, nullptr);
    EXPECT_LT(connection_->written, 300'000U);
    std::string received;
    std::thread client([&] { received = receive_all(); });
    run_until_released();
    client.join();
    EXPECT_EQ(received, code_of(300'000) + std::string(300'000, 'q'));
}

// However fast the client reads: after five writes it is the others' turn.
TEST_F(ReplyWriter, WritesFiveTimesInOneGoAtMost) {
    g_sluggish_fd = server_end_;
    g_interrupted = false;
    g_calls = 0;
    send(request_frame_of("echo:hello"));
    serve_client();
    EXPECT_EQ(g_calls, 5);
    ASSERT_FALSE(is_released());
    server_.loop.run_pass();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(g_calls, 9);
    g_sluggish_fd = -1;
    EXPECT_EQ(receive_all(), code_of(5) + "hello");
}

TEST_F(ReplyWriter, CountsAnInterruptedWriteAsOne) {
    g_sluggish_fd = server_end_;
    g_interrupted = true;
    g_calls = 0;
    send(request_frame_of("echo:hello"));
    serve_client();
    EXPECT_EQ(g_calls, 5);
    ASSERT_FALSE(is_released());
    g_sluggish_fd = -1;
    server_.loop.run_pass();
    EXPECT_EQ(receive_all(), code_of(5) + "hello");
}

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItsBody) {
    send(request_frame_of("echo:hello"));
    client_.reset();
    testing::internal::CaptureStderr();
    serve_client();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result error : Broken pipe\n");
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItsCode) {
    send(request_frame_of("code:-12"));
    client_.reset();
    testing::internal::CaptureStderr();
    serve_client();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

TEST_F(ReplyWriter, ReportsAClientThatIsGoneBeforeItIsToldOfAnUnknownCommand) {
    send(request_frame_of("nothing:"));
    client_.reset();
    testing::internal::CaptureStderr();
    serve_client();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write xml result length fail!!\n");
}

}  // namespace
}  // namespace veltrancord
