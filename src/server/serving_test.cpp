#include "server/serving.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/client_fixture.h"
#include "support/memory_seam.h"

namespace veltrancord {
namespace {

loop_time g_now;

loop_time test_clock() {
    return g_now;
}

class ClientEnd : public one_client {};

TEST_F(ClientEnd, ReportsANullRecord) {
    testing::internal::CaptureStderr();
    release_item(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "release_item NULL Pointer\n");
}

TEST_F(ClientEnd, TakesTheEventsAlong) {
    serve_client();
    ASSERT_NE(connection_->read_event, nullptr);
    send("?");
    release_item(connection_);
    EXPECT_TRUE(is_released());
    EXPECT_TRUE(server_.clients.empty());
    // Were an event left, this pass would call it with a connection that is gone.
    ASSERT_NE(server_.loop.add_timer(
                  0, true, [](void* /*argument*/) {}, nullptr),
              nullptr);
    server_.loop.run_pass();
}

TEST_F(ClientEnd, HappensWhenARequestWasServedFromTheLoop) {
    serve_client();
    send(request_frame_of("echo:hello"));
    server_.loop.run_pass();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(receive_all(), code_of(5) + "hello");
}

TEST_F(ClientEnd, DoesNotHappenWhileOnlyGarbageHasCome) {
    serve_client();
    send("garbage");
    server_.loop.run_pass();
    EXPECT_FALSE(is_released());
    EXPECT_NE(connection_->idle_timer, nullptr);
}

TEST_F(ClientEnd, ComesWhenThereIsNoMemoryToWaitForARequest) {
    {
        const no_memory_left none;
        EXPECT_FALSE(serve(*connection_));
    }
    EXPECT_TRUE(is_released());
    EXPECT_TRUE(server_.clients.empty());
}

TEST_F(ClientEnd, ComesWhenThereIsNoMemoryToWaitForTheRestOfAReply) {
    follow_ups_[1] = [] { g_no_memory = true; };
    send(request_frame_of("fill:3000000"));
    EXPECT_FALSE(serve(*connection_));
    g_no_memory = false;
    EXPECT_TRUE(is_released());
}

// A client that takes its time keeps others' memory small: its request is done with.
TEST_F(ClientEnd, IsNotWaitedForWithTheRequestStillInMemory) {
    const std::string payload = "fill:3000000" + std::string("\0", 1) + std::string(5000, 'x');
    send(request_frame_of(payload));
    serve_client();
    ASSERT_FALSE(is_released());
    EXPECT_NE(connection_->write_event, nullptr);
    EXPECT_EQ(connection_->read_event, nullptr);
    EXPECT_EQ(connection_->payload_block, nullptr);
}

// The server's loop goes by the wall clock, so this one has a server of its own.
TEST(IdleClient, IsReleasedAfter30SecondsWithoutAStartCode) {
    g_now = {1'000'000, 0};
    request_server server(test_clock);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd client(ends[0]);
    connection* const idle = open_connection(server, owned_fd(ends[1]));
    ASSERT_NE(idle, nullptr);
    ASSERT_TRUE(serve(*idle));
    g_now.seconds += 29;
    g_now.microseconds = 995'000;
    server.loop.run_pass();
    EXPECT_GE(::fcntl(ends[1], F_GETFD), 0);
    g_now = {1'000'030, 0};
    server.loop.run_pass();
    EXPECT_LT(::fcntl(ends[1], F_GETFD), 0);
    char byte = 0;
    EXPECT_EQ(::recv(client.get(), &byte, 1, MSG_DONTWAIT), 0);  // closed, and nothing was sent
}

}  // namespace
}  // namespace veltrancord
