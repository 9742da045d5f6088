// The exchange itself: framing, deadline, retries, broken replies, memory.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#include <veltrancord/client.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "fake_service.h"

namespace veltrancord::test {
namespace {

class Exchange : public testing::Test {
  protected:
    Exchange() : path_(directory_.socket_path()) {
        veltrancord_client_init(&client_);
        client_.socket_path = path_.c_str();
        client_.timeout_ms = 20000;
    }

    int32_t raw(const char* command, std::string_view argument, veltrancord_reply& reply) {
        return veltrancord_exchange(&client_, command, argument.data(), argument.size(), &reply);
    }

    std::string error_text() {
        char text[512];
        veltrancord_error_text(&client_, text, sizeof text);
        return text;
    }

    scratch_directory directory_;
    std::string path_;
    veltrancord_client client_;
    char buffer_[64];
    veltrancord_reply reply_ = VELTRANCORD_REPLY_INIT(buffer_, sizeof buffer_, 0);
};

TEST_F(Exchange, FramesCommandAndArgument) {
    const fake_service service(path_, reply_frame(5, "a=b\nc"));
    EXPECT_EQ(raw("read", "A.B", reply_), 5);
    EXPECT_STREQ(reply_.text, "a=b\nc");
    EXPECT_EQ(reply_.length, 5U);
    EXPECT_EQ(reply_.result, 5);
    EXPECT_EQ(service.requests(), std::vector<std::string>{"read:A.B"});
}

TEST_F(Exchange, HeaderAndPayloadLeaveInOneSend) {
    std::atomic<ssize_t> first{0};
    const fake_service service(path_, [&](int fd) {
        char bytes[256];
        first = recv(fd, bytes, sizeof bytes, 0);
        write_all(fd, reply_frame(0));
    });
    EXPECT_EQ(raw("write", "A.B=1", reply_), 0);
    EXPECT_EQ(first, 5 + 11);
}

TEST_F(Exchange, PassesBinaryBothWays) {
    const std::string binary("\0\n:?\xFF", 5);
    const fake_service service(path_, reply_frame(5, binary));
    EXPECT_EQ(raw("writelog", binary, reply_), 5);
    EXPECT_EQ(std::string(reply_.text, reply_.length), binary);
    EXPECT_EQ(service.requests().front(), "writelog:" + binary);
}

TEST_F(Exchange, GivesCountsWithoutText) {
    const fake_service service(path_, reply_frame(1000));
    EXPECT_EQ(raw("geteventcount", "", reply_), 1000);
    EXPECT_EQ(reply_.length, 0U);
    EXPECT_STREQ(reply_.text, "");
    EXPECT_EQ(client_.error.code, 0);
}

TEST_F(Exchange, GivesTheServicesFailures) {
    const fake_service service(path_, reply_frame(-12));
    EXPECT_EQ(raw("isPermitAllow", "a&b", reply_), VELTRANCORD_DENIED);
    EXPECT_EQ(client_.error.code, VELTRANCORD_DENIED);
}

TEST_F(Exchange, SurvivesAReplyByteByByte) {
    const std::string frame = reply_frame(6, "abcdef");
    const fake_service service(path_, [&](int fd) {
        (void)read_request(fd);
        for (const char byte : frame) {
            write_all(fd, std::string(1, byte));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(raw("read", "A.*", reply_), 6);
    EXPECT_STREQ(reply_.text, "abcdef");
}

TEST_F(Exchange, RefusesAReplyOverTheCallersBuffer) {
    const fake_service service(path_, reply_frame(64, std::string(64, 'x')));
    EXPECT_EQ(raw("read", "A.*", reply_), VELTRANCORD_REPLY_OVER_CAP);
    EXPECT_EQ(client_.error.bound, 63U);
    EXPECT_EQ(client_.error.found, 64U);
    EXPECT_EQ(reply_.allocated, nullptr);
    char text[128];
    veltrancord_error_text(&client_, text, sizeof text);
    EXPECT_STREQ(text, "the reply is larger than accepted: 64 bytes, at most 63");
}

TEST_F(Exchange, AllocatesUpToTheCap) {
    const std::string text(100000, 'y');
    const fake_service service(path_, reply_frame(100000, text));
    reply_.cap = 100000;
    EXPECT_EQ(raw("read", "*", reply_), 100000);
    EXPECT_NE(reply_.allocated, nullptr);
    EXPECT_EQ(reply_.text, text);
    veltrancord_reply_release(&reply_);
    reply_.cap = 99999;
    EXPECT_EQ(raw("read", "*", reply_), VELTRANCORD_REPLY_OVER_CAP);
    EXPECT_EQ(reply_.allocated, nullptr);
}

TEST_F(Exchange, AllocatesNothingForAReplyThatFits) {
    const fake_service service(path_, reply_frame(63, std::string(63, 'x')));
    reply_.cap = 1000000;
    EXPECT_EQ(raw("read", "A.*", reply_), 63);
    EXPECT_EQ(reply_.allocated, nullptr);
    EXPECT_EQ(reply_.text, buffer_);
}

struct broken_reply {
    std::string bytes;
    int32_t raw_result;
    int32_t read_result;
};

TEST_F(Exchange, ShortAndBrokenRepliesAreErrors) {
    const broken_reply cases[] = {
        {"", VELTRANCORD_NO_REPLY, VELTRANCORD_NO_REPLY},
        {std::string("\x05\0", 2), VELTRANCORD_BROKEN_REPLY, VELTRANCORD_BROKEN_REPLY},
        {reply_frame(5, "abcd"), VELTRANCORD_BROKEN_REPLY, VELTRANCORD_BROKEN_REPLY},
        {reply_frame(5), 5, VELTRANCORD_BROKEN_REPLY},
        {reply_frame(-4, "x"), VELTRANCORD_BROKEN_REPLY, VELTRANCORD_BROKEN_REPLY},
    };
    for (const broken_reply& broken : cases) {
        const fake_service service(path_, broken.bytes);
        EXPECT_EQ(raw("read", "A.*", reply_), broken.raw_result) << broken.bytes.size();
        EXPECT_EQ(veltrancord_read(&client_, "A.*", &reply_), broken.read_result)
            << broken.bytes.size();
        EXPECT_EQ(reply_.allocated, nullptr);
    }
}

TEST_F(Exchange, ServiceThatClosesUnreadGivesNoReplyAndNoSignal) {
    // With SIGPIPE at its default a signal would end this test program.
    signal(SIGPIPE, SIG_DFL);
    const fake_service service(path_, [](int fd) { shutdown(fd, SHUT_RDWR); });
    const std::string large(8U << 20U, 'x');
    EXPECT_EQ(raw("write", large, reply_), VELTRANCORD_NO_REPLY);
}

TEST_F(Exchange, SendsMoreThanTheSocketBuffer) {
    const std::string large(8U << 20U, 'x');
    const fake_service service(path_, reply_frame(1));
    EXPECT_EQ(raw("write", large, reply_), 1);
    EXPECT_EQ(service.requests().front().size(), large.size() + 6);
}

TEST_F(Exchange, UnreachableAtOnceWhenTheSocketIsMissing) {
    client_.timeout_ms = -1;  // any waiting would be for ever
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_UNREACHABLE);
    EXPECT_EQ(client_.error.system_error, ENOENT);
}

TEST_F(Exchange, RefusedConnectionIsRetriedUntilTheDeadline) {
    listen_only(path_, 1).reset();  // the socket file stays behind
    client_.timeout_ms = 30;
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_UNREACHABLE);
    EXPECT_EQ(client_.error.system_error, ECONNREFUSED);
}

TEST_F(Exchange, RefusedConnectionSucceedsOnceTheServiceIsBack) {
    listen_only(path_, 1).reset();
    std::thread starter;
    std::atomic<bool> done{false};
    client_.timeout_ms = -1;
    starter = std::thread([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const fake_service service(path_, reply_frame(0));
        while (!done) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(raw("SyncPermit", "", reply_), 0);
    done = true;
    starter.join();
}

TEST_F(Exchange, WaitSurvivesAMissingSocketAndALostReply) {
    std::atomic<int> connections{0};
    std::thread starter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const fake_service service(path_, [&](int fd) {
            if (connections++ > 0) {
                (void)read_request(fd);
                write_all(fd, reply_frame(-4));
            }
        });
        while (connections < 2) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        // The service ends only after the connection under way has been served.
    });
    EXPECT_EQ(veltrancord_wait(&client_), VELTRANCORD_OK);
    EXPECT_EQ(client_.error.code, 0);
    starter.join();
    client_.timeout_ms = 20;
    EXPECT_EQ(veltrancord_wait(&client_), VELTRANCORD_UNREACHABLE);
}

TEST_F(Exchange, DeadlineCoversASilentService) {
    const owned_fd listener = listen_only(path_, 8);
    client_.timeout_ms = 30;
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_TIMED_OUT);
}

TEST_F(Exchange, DeadlineCoversAFullBacklog) {
    const owned_fd listener = listen_only(path_, 0);
    client_.timeout_ms = 30;
    // The first one waits in the backlog's only place, the others in connect().
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_TIMED_OUT);
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_TIMED_OUT);
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_TIMED_OUT);
}

TEST_F(Exchange, DeadlineCoversAReplyThatTrickles) {
    std::atomic<bool> stop{false};
    {
        const fake_service service(path_, [&](int fd) {
            (void)read_request(fd);
            write_all(fd, reply_frame(1000000));
            while (!stop) {
                write_all(fd, "x");
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        client_.timeout_ms = 60;
        reply_.cap = 1000000;
        EXPECT_EQ(raw("read", "*", reply_), VELTRANCORD_TIMED_OUT);
        EXPECT_EQ(reply_.allocated, nullptr);
        stop = true;
    }
}

void ignore_signal(int /*signal*/) {}

TEST_F(Exchange, InterruptedCallsAreTakenUpAgain) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = ignore_signal;  // without SA_RESTART: every call is interrupted
    sigaction(SIGUSR1, &action, &before);
    const pthread_t self = pthread_self();
    std::atomic<bool> stop{false};
    {
        const fake_service service(path_, [](int fd) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            (void)read_request(fd);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            write_all(fd, reply_frame(3, "abc"));
        });
        std::thread disturber([&] {
            while (!stop) {
                pthread_kill(self, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        EXPECT_EQ(raw("read", std::string(4U << 20U, 'x'), reply_), 3);
        EXPECT_STREQ(reply_.text, "abc");
        stop = true;
        disturber.join();
    }
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(Exchange, ManyThreadsEachWithItsClient) {
    const fake_service service(path_, [](int fd) {
        const std::string request = read_request(fd);
        write_all(fd, reply_frame(static_cast<int32_t>(request.size()), request));
    });
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            veltrancord_client client = VELTRANCORD_CLIENT_INIT;
            client.socket_path = path_.c_str();
            client.timeout_ms = -1;
            for (int round = 0; round < 100; ++round) {
                char value[64];
                const std::string path = "A.B" + std::to_string(number * 1000 + round);
                EXPECT_GT(veltrancord_get(&client, path.c_str(), value, sizeof value), 0);
                EXPECT_EQ("readvalue:" + path, value);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Exchange, DescriptorsAreNeitherLeakedNorInherited) {
    const fake_service service(path_, reply_frame(0));
    const int before = dup(0);
    close(before);
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(raw("SyncPermit", "", reply_), 0);
        client_.socket_path = "/nonexistent/socket";
        EXPECT_EQ(raw("SyncPermit", "", reply_), VELTRANCORD_UNREACHABLE);
        client_.socket_path = path_.c_str();
    }
    const int after = dup(0);
    close(after);
    // The service's thread may hold the last connection's descriptor still.
    EXPECT_LE(after, before + 1);
}

TEST_F(Exchange, RefusesWhatIsNoCommand) {
    EXPECT_EQ(raw("", "x", reply_), VELTRANCORD_COMMAND_HAS_SEPARATOR);
    EXPECT_EQ(raw("a:b", "x", reply_), VELTRANCORD_COMMAND_HAS_SEPARATOR);
    EXPECT_EQ(veltrancord_exchange(&client_, nullptr, "", 0, &reply_), VELTRANCORD_INVALID_USE);
    EXPECT_EQ(veltrancord_exchange(&client_, "read", "", 0, nullptr), VELTRANCORD_INVALID_USE);
    EXPECT_EQ(veltrancord_exchange(&client_, "read", nullptr, 1, &reply_), VELTRANCORD_INVALID_USE);
}

TEST_F(Exchange, RefusesASocketPathThatCannotBe) {
    const std::string path(108, 'x');
    client_.socket_path = path.c_str();
    EXPECT_EQ(raw("read", "A", reply_), VELTRANCORD_UNREACHABLE);
    EXPECT_EQ(client_.error.system_error, ENAMETOOLONG);
    EXPECT_EQ(error_text(), path + ": the service cannot be reached: File name too long");
}

TEST_F(Exchange, TheEnvironmentNamesTheSocketWhereTheCallerDoesNot) {
    const fake_service service(path_, reply_frame(-4));
    ASSERT_EQ(setenv("VELTRANCORD_SOCKET", path_.c_str(), 1), 0);
    for (const char* unnamed : {static_cast<const char*>(nullptr), ""}) {
        client_.socket_path = unnamed;
        EXPECT_EQ(veltrancord_ping(&client_), VELTRANCORD_OK);
    }
    client_.socket_path = "/nonexistent/socket";
    EXPECT_EQ(veltrancord_ping(&client_), VELTRANCORD_UNREACHABLE);
    EXPECT_STREQ(client_.error.subject, "/nonexistent/socket");
    ASSERT_EQ(setenv("VELTRANCORD_SOCKET", "/nonexistent/other", 1), 0);
    client_.socket_path = nullptr;
    EXPECT_EQ(veltrancord_ping(&client_), VELTRANCORD_UNREACHABLE);
    EXPECT_EQ(error_text(),
              "/nonexistent/other: the service cannot be reached: No such file or directory");
    ASSERT_EQ(unsetenv("VELTRANCORD_SOCKET"), 0);
}

TEST_F(Exchange, PingTakesTheAnswerForUnknownCommands) {
    const fake_service service(path_, reply_frame(-4));
    EXPECT_EQ(veltrancord_ping(&client_), VELTRANCORD_OK);
    EXPECT_EQ(client_.error.code, 0);
    EXPECT_EQ(service.requests().front(), "ping:");
}

}  // namespace
}  // namespace veltrancord::test
