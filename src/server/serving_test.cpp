#include "server/serving.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "support/client_fixture.h"
#include "support/memory_seam.h"

namespace veltrancord {
namespace {

loop_moment g_now;

loop_moment test_clocks() {
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
    follow_ups_[1] = [] { g_failing_allocations = INT_MAX; };
    send(request_frame_of("fill:3000000"));
    EXPECT_FALSE(serve(*connection_));
    g_failing_allocations = 0;
    EXPECT_TRUE(is_released());
}

// A gate that the tests tell what to answer.
class test_gate final : public command_gate {
  public:
    struct pass final : client_pass {
        explicit pass(int& count) : passes(count) { ++passes; }
        pass(const pass&) = delete;
        pass& operator=(const pass&) = delete;
        ~pass() override { --passes; }
        int& passes;
    };

    bool admit(const gate_visitor& visitor, std::size_t how_many) noexcept override {
        places = how_many;
        visitor.pass = std::make_unique<pass>(passes);
        return admits;
    }
    int payload_time(const gate_visitor& /*visitor*/) noexcept override { return time; }
    int32_t run(const gate_visitor& visitor, const gated_command& command,
                connection_record& connection) override {
        asked += std::string(command.name) + ":" + std::string(command.argument.text()) + " ";
        visitor_fd = visitor.fd;
        return allows ? command.handler(connection, command.argument, command.row) : -12;
    }

    bool admits = true;
    bool allows = true;
    int time = -1;
    int passes = 0;
    int visitor_fd = -1;
    std::size_t places = 0;
    std::string asked;
};

class Gate : public one_client {
  protected:
    Gate() { server_.gate = &gate_; }
    ~Gate() override { server_.clients.clear(); }

    test_gate gate_;
};

TEST_F(Gate, IsAskedBeforeEachHandler) {
    EXPECT_EQ(request("echo:hello"), code_of(5) + "hello");
    EXPECT_EQ(gate_.asked, "echo:hello ");
    EXPECT_EQ(gate_.visitor_fd, server_end_);
    EXPECT_EQ(g_seen.follow_ups, "12");
}

TEST_F(Gate, ThatRefusesIsAllThatRuns) {
    gate_.allows = false;
    EXPECT_EQ(request("echo:hello"), code_of(-12));
    EXPECT_EQ(g_seen.calls, 0);
}

TEST_F(Gate, IsNotAskedForWhatIsNoCommand) {
    EXPECT_EQ(request("nothing:x"), code_of(-4));
    EXPECT_EQ(gate_.asked, "");
}

TEST_F(Gate, GetsItsPassBackWhenTheClientEnds) {
    server_.gate = nullptr;
    ASSERT_TRUE(gate_.admit({server_end_, connection_->pass}, 1));
    EXPECT_EQ(gate_.passes, 1);
    serve_client();
    EXPECT_EQ(gate_.passes, 1);
    release_item(connection_);
    EXPECT_EQ(gate_.passes, 0);
}

TEST_F(Gate, EndsAClientThatWithholdsItsPayloadForLongerThanItGives) {
    gate_.time = 1;
    EXPECT_EQ(failure_of(request_frame_of("echo:hello").substr(0, 8)),
              "do_read request deadline is over!!\ndo_read read command fail!!\n");
    EXPECT_EQ(gate_.asked, "");
}

TEST_F(Gate, ThatGivesNoTimeAtAllStillTakesWhatIsThere) {
    gate_.time = 0;
    EXPECT_EQ(request("echo:hello"), code_of(5) + "hello");
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
    g_now = {{1'000'000, 0}, {1'000, 0}};
    request_server server(test_clocks);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd client(ends[0]);
    connection* const idle = open_connection(server, owned_fd(ends[1]));
    ASSERT_NE(idle, nullptr);
    ASSERT_TRUE(serve(*idle));
    g_now.wall = {1'000'029, 995'000};
    g_now.steady = {1'029, 995'000};
    server.loop.run_pass();
    EXPECT_GE(::fcntl(ends[1], F_GETFD), 0);
    g_now = {{1'000'030, 0}, {1'030, 0}};
    server.loop.run_pass();
    EXPECT_LT(::fcntl(ends[1], F_GETFD), 0);
    char byte = 0;
    EXPECT_EQ(::recv(client.get(), &byte, 1, MSG_DONTWAIT), 0);  // closed, and nothing was sent
}

// The listening socket is gone: who has asked is answered, who has not is let go.
TEST_F(ClientEnd, ComesAtOnceForThoseWithoutARequestWhenTheServerFinishes) {
    serve_client();
    const owned_fd idle = std::move(client_);
    connect_again();
    serve_client();
    const owned_fd asking = std::move(client_);
    const std::string frame = request_frame_of("echo:hello");
    ASSERT_EQ(::send(asking.get(), frame.data(), frame.size(), 0), 15);
    finish_clients(server_);
    EXPECT_TRUE(server_.clients.empty());
    char reply[16];
    EXPECT_EQ(::recv(idle.get(), reply, sizeof reply, MSG_DONTWAIT), 0);
    EXPECT_EQ(::recv(asking.get(), reply, sizeof reply, MSG_DONTWAIT), 9);
    server_.loop.run();  // it is stopped, so this returns
}

TEST_F(ClientEnd, WaitsForARepliesRestWhenTheServerFinishes) {
    send(request_frame_of("fill:3000000"));
    serve_client();
    finish_clients(server_);
    EXPECT_FALSE(is_released());
    std::string received;
    std::thread client([&] { received = receive_all(); });
    server_.loop.run();
    client.join();
    EXPECT_EQ(received.size(), 4U + 3'000'000U);
    EXPECT_TRUE(server_.clients.empty());
}

TEST(FinishingServer, WaitsNoLongerForARepliesRestThanForASilentClient) {
    g_now = {{1'000'000, 0}, {1'000, 0}};
    request_server server(test_clocks);
    server.commands = command_index(test_handlers::rows);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const owned_fd client(ends[0]);
    const std::string frame = request_frame_of("fill:3000000");
    ASSERT_GT(::send(client.get(), frame.data(), frame.size(), 0), 0);
    connection* const slow = open_connection(server, owned_fd(ends[1]));
    ASSERT_NE(slow, nullptr);
    ASSERT_TRUE(serve(*slow));
    finish_clients(server);
    g_now = {{1'000'030, 0}, {1'030, 0}};
    server.loop.run();
    EXPECT_EQ(server.clients.size(), 1U);
}

}  // namespace
}  // namespace veltrancord
