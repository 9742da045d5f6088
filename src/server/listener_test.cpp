#include "server/listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "leaf/termination.h"
#include "server/local_server.h"
#include "support/client_fixture.h"
#include "support/memory_seam.h"

namespace veltrancord {
namespace {

// While it lives the process may open no further descriptor.
class no_descriptors_left {
  public:
    no_descriptors_left() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const owned_fd next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        rlimit limited = before_;
        limited.rlim_cur = static_cast<rlim_t>(next.get());
        ::setrlimit(RLIMIT_NOFILE, &limited);
    }
    ~no_descriptors_left() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    no_descriptors_left(const no_descriptors_left&) = delete;
    no_descriptors_left& operator=(const no_descriptors_left&) = delete;

  private:
    rlimit before_ = {};
};

class Listener : public testing::Test {
  protected:
    Listener() {
        char name[] = "/tmp/listener_test-XXXXXX";
        directory_ = ::mkdtemp(name);
        path_ = directory_ + "/socket";
        server_.commands = command_index(test_handlers::rows);
    }
    ~Listener() override {
        // By now the clients have gone: connections that still wait for them find that out.
        testing::internal::CaptureStderr();
        for (int turn = 0; turn < 2; ++turn) {
            EXPECT_NE(server_.loop.add_timer(
                          0, true, [](void* /*argument*/) {}, nullptr),
                      nullptr);
            server_.loop.run_pass();
        }
        testing::internal::GetCapturedStderr();
        ::unlink(path_.c_str());
        ::rmdir(directory_.c_str());
    }

    void listen() {
        socket_.reset(create_local_server(path_.c_str()));
        ASSERT_TRUE(socket_);
        server_.listener.fd = socket_.get();
        ASSERT_TRUE(start_listening(server_));
    }

    [[nodiscard]] owned_fd connect() const {
        owned_fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
        if (::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) <
            0) {
            client.reset();
        }
        return client;
    }

    std::string accept_and_capture() {
        testing::internal::CaptureStderr();
        do_accept(&server_);
        return testing::internal::GetCapturedStderr();
    }

    std::string accept_without_descriptors() {
        testing::internal::CaptureStderr();
        {
            const no_descriptors_left none;
            do_accept(&server_);
        }
        return testing::internal::GetCapturedStderr();
    }

    static bool is_closed_by_server(const owned_fd& client) {
        char byte = 0;
        return ::recv(client.get(), &byte, 1, MSG_DONTWAIT) == 0;
    }

    std::string directory_;
    std::string path_;
    owned_fd socket_;
    request_server server_;
};

TEST_F(Listener, HoldsMoreClientsBackThanConnectAtATime) {
    listen();
    std::vector<owned_fd> clients;
    for (int count = 0; count < 128; ++count) {
        clients.push_back(connect());
        EXPECT_TRUE(clients.back()) << count;
    }
}

TEST_F(Listener, ServesARequestThatCameWithTheConnection) {
    listen();
    const owned_fd client = connect();
    const std::string frame = request_frame_of("echo:hello");
    ASSERT_EQ(::send(client.get(), frame.data(), frame.size(), 0),
              static_cast<ssize_t>(frame.size()));
    server_.loop.run_pass();
    char reply[32];
    ASSERT_EQ(::recv(client.get(), reply, sizeof reply, 0), 9);
    EXPECT_EQ(std::string(reply, 9), code_of(5) + "hello");
    EXPECT_EQ(::recv(client.get(), reply, sizeof reply, 0), 0);
}

TEST_F(Listener, ServesARequestThatComesLater) {
    listen();
    const owned_fd client = connect();
    server_.loop.run_pass();
    const std::string frame = request_frame_of("nothing:");
    ASSERT_EQ(::send(client.get(), frame.data(), frame.size(), 0),
              static_cast<ssize_t>(frame.size()));
    server_.loop.run_pass();
    char reply[32];
    ASSERT_EQ(::recv(client.get(), reply, sizeof reply, 0), 4);
    EXPECT_EQ(std::string(reply, 4), code_of(-4));
}

TEST_F(Listener, AcceptedSocketsNeitherBlockNorTravelIntoChildren) {
    listen();
    const owned_fd client = connect();
    const owned_fd next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int expected = next.get() + 1;
    server_.loop.run_pass();
    EXPECT_NE(::fcntl(expected, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(expected, F_GETFD) & FD_CLOEXEC, 0);
}

int next_descriptor() {
    const owned_fd next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return next.get();
}

TEST_F(Listener, TurnsNewcomersAwayWhileSomeDescriptorsAreFree) {
    listen();
    const owned_fd first = connect();
    const owned_fd second = connect();
    server_.highest_fd = next_descriptor() - 1;
    EXPECT_EQ(accept_and_capture(), "do_accept accept: Too many open files!!\n");
    EXPECT_TRUE(is_closed_by_server(first));
    EXPECT_EQ(accept_and_capture(), "");  // one line for as long as it lasts
    EXPECT_TRUE(is_closed_by_server(second));
    const owned_fd third = connect();
    server_.highest_fd = next_descriptor() + 1;  // what captures the output takes one
    EXPECT_EQ(accept_and_capture(), "");
    EXPECT_FALSE(is_closed_by_server(third));
    const owned_fd fourth = connect();
    EXPECT_EQ(accept_and_capture(), "do_accept accept: Too many open files!!\n");
    EXPECT_TRUE(is_closed_by_server(fourth));
}

TEST_F(Listener, LeavesEightDescriptorsToRequests) {
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = 100;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(highest_client_fd(), 91);  // of 0 to 99
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(Listener, PausesWhenNoDescriptorIsLeftAtAll) {
    listen();
    const owned_fd client = connect();
    EXPECT_EQ(accept_without_descriptors(), "do_accept accept: Too many open files!!\n");
    EXPECT_EQ(server_.accept_event, nullptr);
    ASSERT_NE(server_.pause_timer, nullptr);
    server_.loop.run_pass();  // waits for the end of the pause
    EXPECT_NE(server_.accept_event, nullptr);
    EXPECT_EQ(server_.pause_timer, nullptr);
    const std::string frame = request_frame_of("nothing:");
    ASSERT_EQ(::send(client.get(), frame.data(), frame.size(), 0),
              static_cast<ssize_t>(frame.size()));
    server_.loop.run_pass();
    char reply[32];
    EXPECT_EQ(::recv(client.get(), reply, sizeof reply, 0), 4);
}

// Else nobody would be let in any more.
TEST_F(Listener, PausesAgainWhenThereIsNoMemoryToGoOn) {
    listen();
    const owned_fd client = connect();
    accept_without_descriptors();
    ASSERT_NE(server_.pause_timer, nullptr);
    // What the loop does when the pause is over; only the next timer finds memory.
    const event_callback resume = server_.pause_timer->callback;
    server_.loop.remove(server_.pause_timer);
    g_failing_allocations = 1;
    resume(&server_);
    g_failing_allocations = 0;
    EXPECT_EQ(server_.accept_event, nullptr);
    ASSERT_NE(server_.pause_timer, nullptr);
    while (server_.accept_event == nullptr) {
        server_.loop.run_pass();
    }
}

TEST_F(Listener, StaysWatchedWhenSomebodyHasGoneAgain) {
    listen();
    EXPECT_EQ(accept_and_capture(), "do_accept accept: Resource temporarily unavailable!!\n");
    EXPECT_EQ(accept_and_capture(), "");
    EXPECT_NE(server_.accept_event, nullptr);
}

// accept without waiting fails on such a socket as when nobody wants to connect, while poll goes on
// calling it readable: the loop once span for as long as the process lived.
TEST_F(Listener, IsNotWatchedAnyMoreOnceItWasShutDown) {
    listen();
    testing::internal::CaptureStderr();
    ::shutdown(socket_.get(), SHUT_RDWR);  // as another process does
    server_.loop.run_pass();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "do_accept accept: Resource temporarily unavailable!!\n");
    EXPECT_EQ(server_.accept_event, nullptr);
    EXPECT_EQ(server_.pause_timer, nullptr);
    EXPECT_FALSE(connect());
}

// A process that ends itself has shut the socket down on purpose.
TEST_F(Listener, ThatWasShutDownSaysNothingInAProcessThatIsEnding) {
    listen();
    ::shutdown(socket_.get(), SHUT_RDWR);
    g_terminating.store(true);
    EXPECT_EQ(accept_and_capture(), "");
    g_terminating.store(false);
    EXPECT_EQ(server_.accept_event, nullptr);
}

TEST_F(Listener, ClosesANewcomerForWhichThereIsNoMemory) {
    listen();
    const owned_fd client = connect();
    testing::internal::CaptureStderr();
    {
        const no_memory_left none;
        do_accept(&server_);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "do_accept Allocate memory fail!!\n");
    EXPECT_TRUE(is_closed_by_server(client));
    EXPECT_NE(server_.accept_event, nullptr);
}

TEST(ServerThread, ReturnsAtOnceWithoutAListeningSocket) {
    server_start start;
    start.fd = 0;
    EXPECT_EQ(server_thread(&start), nullptr);
}

// Runs the thread as a worker does.
class RunningServer : public testing::Test {
  protected:
    RunningServer() {
        g_gone = false;
        g_seen = {};
        char name[] = "/tmp/server_thread_test-XXXXXX";
        directory_ = ::mkdtemp(name);
        socket_.reset(create_local_server((directory_ + "/socket").c_str()));
        start_.fd = socket_.get();
        start_.commands = rows_;
        start_.socket_gone = [] { g_gone = true; };
        g_start = &start_;
        thread_ = std::thread([this] { server_thread(&start_); });
    }
    ~RunningServer() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] owned_fd connect() const {
        owned_fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (directory_ + "/socket").copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(
            ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
        return client;
    }

    static std::string receive(const owned_fd& client) {
        char reply[32];
        const ssize_t count = ::recv(client.get(), reply, sizeof reply, 0);
        return {reply, static_cast<std::size_t>(count > 0 ? count : 0)};
    }

    // Tells whether the lists were there when it ran.
    static int32_t lists_are_ready(connection_record& /*connection*/, command_argument /*argument*/,
                                   int32_t /*row*/) {
        return g_start->lists_ready.try_wait() ? 1 : 0;
    }

    inline static std::atomic<bool> g_gone;
    inline static server_start* g_start;
    static constexpr std::array<command_row, 1> rows_ = {{{"ready", lists_are_ready, ""}}};

    std::string directory_;
    owned_fd socket_;
    server_start start_;
    std::thread thread_;
};

TEST_F(RunningServer, ServesNobodyBeforeTheListsAreReady) {
    const owned_fd client = connect();
    const std::string frame = request_frame_of("ready:");
    ASSERT_EQ(::send(client.get(), frame.data(), frame.size(), 0),
              static_cast<ssize_t>(frame.size()));
    ::usleep(100'000);  // long enough to be served wrongly
    start_.lists_ready.count_down();
    EXPECT_EQ(receive(client), code_of(1));
    testing::internal::CaptureStderr();
    ::shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
    testing::internal::GetCapturedStderr();
}

// As when the supervisor is ended alone: nothing may be left behind it.
TEST_F(RunningServer, EndsWhenSomebodyHasShutTheSocketDown) {
    const owned_fd idle = connect();
    const owned_fd asking = connect();
    const owned_fd half = connect();
    const std::string frame = request_frame_of("ready:");
    ASSERT_GT(::send(asking.get(), frame.data(), frame.size(), 0), 0);
    ASSERT_GT(::send(half.get(), frame.data(), frame.size() - 1, 0), 0);
    testing::internal::CaptureStderr();
    ::shutdown(socket_.get(), SHUT_RDWR);
    EXPECT_FALSE(g_gone);
    start_.lists_ready.count_down();
    EXPECT_EQ(receive(asking), code_of(1));
    ASSERT_GT(::send(half.get(), ":", 1, 0), 0);
    EXPECT_EQ(receive(half), code_of(1));
    EXPECT_EQ(receive(idle), "");
    thread_.join();
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(g_gone);
}

}  // namespace
}  // namespace veltrancord
