#include "server/connection.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/exchange_fixture.h"

namespace veltrancord {
namespace {

loop_time g_now;

loop_time test_clock() {
    return g_now;
}

class ConnectionRelease : public exchange {};

TEST_F(ConnectionRelease, ReportsANullRecord) {
    testing::internal::CaptureStderr();
    release_item(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "release_item NULL Pointer\n");
    release();
}

TEST_F(ConnectionRelease, TakesTheEventsAlong) {
    ASSERT_TRUE(await_request(*connection_));
    send("?");
    release();
    EXPECT_TRUE(is_released());
    // Were an event left, this pass would call it with a connection that is gone.
    ASSERT_NE(server_.loop.add_timer(
                  0, true, [](void* /*argument*/) {}, nullptr),
              nullptr);
    server_.loop.run_pass();
}

TEST_F(ConnectionRelease, HappensWhenARequestWasServedFromTheLoop) {
    ASSERT_TRUE(await_request(*connection_));
    send(request_frame_of("echo:hello"));
    server_.loop.run_pass();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(receive_all(), code_of(5) + "hello");
}

TEST_F(ConnectionRelease, DoesNotHappenWhileOnlyGarbageHasCome) {
    ASSERT_TRUE(await_request(*connection_));
    send("garbage");
    server_.loop.run_pass();
    EXPECT_FALSE(is_released());
    EXPECT_NE(connection_->idle_timer, nullptr);
    release();
}

// The server's loop goes by the wall clock, so this one has a server of its own.
TEST(IdleConnection, IsReleasedAfter30SecondsWithoutAStartCode) {
    g_now = {1'000'000, 0};
    request_server server(test_clock);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd client(ends[0]);
    connection* const idle = open_connection(server, owned_fd(ends[1]));
    ASSERT_NE(idle, nullptr);
    ASSERT_TRUE(await_request(*idle));
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
