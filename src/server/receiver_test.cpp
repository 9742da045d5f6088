#include "server/receiver.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/client_fixture.h"

namespace {

int g_watched_fd = -1;                        // waits for it are noted,
std::vector<int> g_time_outs;                 // here,
std::function<void()> g_meanwhile = nullptr;  // and something happens before they begin

}  // namespace

// The C library's declaration says that a call writes to the places; it does not say that it reads.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

// The program's own stands before the C library's.
extern "C" int poll(pollfd* places, nfds_t count, int time_out) {
    if (count == 1 && places[0].fd == g_watched_fd) {
        g_time_outs.push_back(time_out);
        if (g_meanwhile) {
            g_meanwhile();
        }
    }
    const timespec wait = {time_out / 1000, time_out % 1000 * 1'000'000L};
    return static_cast<int>(
        ::syscall(SYS_ppoll, places, count, time_out < 0 ? nullptr : &wait, nullptr, 0));
}

namespace veltrancord {
namespace {

using namespace std::string_literals;

class RequestReader : public one_client {
  protected:
    RequestReader() {
        g_time_outs.clear();
        g_watched_fd = server_end_;
    }
    ~RequestReader() override {
        g_watched_fd = -1;
        g_meanwhile = nullptr;
    }
};

TEST_F(RequestReader, ServesAWholeFrame) {
    EXPECT_EQ(request("echo:hello"), code_of(5) + "hello");
}

TEST_F(RequestReader, SkipsGarbageBeforeTheStartCode) {
    EXPECT_EQ(reply_to("\0\xFF\ngarbage"s + request_frame_of("echo:x")), code_of(1) + "x");
}

// More than one read's worth of garbage, ending at every place around the end of the read buffer:
// the frame's head is cut by our buffer, not by the client.
TEST_F(RequestReader, SkipsGarbageOfAnyLength) {
    for (std::size_t length = 4080; length < 4110; ++length) {
        connect_again();
        EXPECT_EQ(reply_to(std::string(length, 'x') + request_frame_of("echo:hello")),
                  code_of(5) + "hello")
            << length;
    }
}

TEST_F(RequestReader, WaitsWhenOnlyGarbageIsThere) {
    send("garbage");
    serve_client();
    EXPECT_FALSE(is_released());
    send(std::string(4096, 'x'));
    serve_client();
    EXPECT_FALSE(is_released());
    EXPECT_EQ(request("echo:hello"), code_of(5) + "hello");
}

TEST_F(RequestReader, WaitsWhenNothingIsThere) {
    serve_client();
    EXPECT_FALSE(is_released());
    serve_client();
    EXPECT_FALSE(is_released());
}

TEST_F(RequestReader, ReportsTheEndOfTheStreamBeforeAStartCode) {
    EXPECT_EQ(failure_of("", true), "do_read Check start code fail ret=0!!\n");
}

TEST_F(RequestReader, ReportsTheEndOfTheStreamBehindGarbage) {
    send("garbage");
    serve_client();
    EXPECT_FALSE(is_released());
    EXPECT_EQ(failure_of("", true), "do_read Check start code fail ret=0!!\n");
}

TEST_F(RequestReader, ReportsAnErrorBeforeAStartCode) {
    // The client goes away with something unread, which resets the connection.
    ASSERT_EQ(::send(server_end_, "x", 1, 0), 1);
    client_.reset();
    testing::internal::CaptureStderr();
    serve_client();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "do_read Check start code fail ret=-1!!\n");
}

TEST_F(RequestReader, GivesUpALengthThatDoesNotComeAtOnce) {
    EXPECT_EQ(failure_of("?"),
              "do_read 1932 read length fail, error: Resource temporarily unavailable!!\n");
}

TEST_F(RequestReader, WaitsABitBeforeEachFurtherAttemptAtTheLength) {
    failure_of("?");
    EXPECT_EQ(g_time_outs, std::vector<int>({10, 10, 10}));
}

TEST_F(RequestReader, TakesARequestInThreePieces) {
    g_meanwhile = [this] { send(g_time_outs.size() == 1 ? "\6\0\0\0"s : "echo:x"); };
    EXPECT_EQ(reply_to("?"), code_of(1) + "x");
    EXPECT_EQ(g_time_outs, std::vector<int>({10, -1}));
}

TEST_F(RequestReader, TakesALengthThatComesWithTheLastAttempt) {
    g_meanwhile = [this] {
        if (g_time_outs.size() == 3) {
            send("\6\0\0\0echo:x"s);
        }
    };
    EXPECT_EQ(reply_to("?"), code_of(1) + "x");
    EXPECT_EQ(g_time_outs.size(), 3U);
}

// Requests hold passwords and tokens.
TEST_F(RequestReader, WipesWhatItHasReceived) {
    alignas(received_request) unsigned char memory[sizeof(received_request)] = {};
    auto* const request = new (memory) received_request;
    send("garbage" + request_frame_of("echo:a-secret-token"));
    ASSERT_EQ(do_read(*connection_, *request), next_step::run_command);
    EXPECT_NE(::memmem(memory, sizeof memory, "a-secret-token", 14), nullptr);
    request->~received_request();
    EXPECT_EQ(::memmem(memory, sizeof memory, "a-secret-token", 14), nullptr);
}

TEST_F(RequestReader, WipesTheFirstPieceOfAPayloadThatGoesElsewhere) {
    alignas(received_request) unsigned char memory[sizeof(received_request)] = {};
    auto* const request = new (memory) received_request;
    const std::string frame = request_frame_of("echo:a-secret-token and more");
    send(frame.substr(0, frame.size() - 5));
    g_meanwhile = [&] { send(frame.substr(frame.size() - 5)); };
    ASSERT_EQ(do_read(*connection_, *request), next_step::run_command);
    EXPECT_EQ(connection_->payload_block.get_deleter().used, 28U);
    request->~received_request();
    EXPECT_EQ(::memmem(memory, sizeof memory, "a-secret-token", 14), nullptr);
}

TEST_F(RequestReader, GivesUpALengthOfWhichAPartIsThere) {
    EXPECT_EQ(failure_of("?\5"), "do_read read length fail, error: Success!!\n");
}

TEST_F(RequestReader, GivesUpALengthThatLacksOneByte) {
    EXPECT_EQ(failure_of("xx?\5\0\0"s), "do_read read length fail, error: Success!!\n");
}

TEST_F(RequestReader, GivesUpALengthThatTheStreamEndsBefore) {
    EXPECT_EQ(failure_of("?", true), "do_read read length fail, error: Success!!\n");
}

TEST_F(RequestReader, GivesUpAPartialLengthThatFillsItsBuffer) {
    EXPECT_EQ(failure_of(std::string(4093, 'x') + "?\1\2"),
              "do_read read length fail, error: Success!!\n");
}

TEST_F(RequestReader, TakesALengthThatComesBehindAFullBuffer) {
    EXPECT_EQ(reply_to(std::string(4095, 'x') + request_frame_of("echo:a")), code_of(1) + "a");
}

TEST_F(RequestReader, TreatsAPayloadOfNoBytesAsTheEndOfTheStream) {
    EXPECT_EQ(failure_of("?\0\0\0\0"s), "do_read read command fail!!\n");
}

TEST_F(RequestReader, ReportsAPayloadThatBreaksOff) {
    EXPECT_EQ(failure_of("?\5\0\0\0echo"s, true), "do_read read command fail!!\n");
}

TEST_F(RequestReader, SurvivesTheLargestLength) {
    // Whether so much can be had depends on the machine; one byte more than 4294967295 must not
    // become 0 in any case.
    const std::string printed = failure_of(
        "?\xFF\xFF\xFF\xFF"
        "echo:x",
        true);
    EXPECT_TRUE(printed == "do_read read command fail!!\n" || printed == "do_read malloc fail!!\n")
        << printed;
}

// Sanitizers neither live with a limited address space nor leave memory untouched.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(RequestReader, ReportsMemoryThatCannotBeHad) {
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    rlimit limited = before;
    limited.rlim_cur = 1U << 30;
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &limited), 0);
    const std::string printed = failure_of(
        "?\xFF\xFF\xFF\x7F"
        "echo:x");
    ::setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(printed, "do_read malloc fail!!\n");
}

long resident_pages() {
    std::ifstream statistics("/proc/self/statm");
    long total = 0;
    long resident = 0;
    statistics >> total >> resident;
    return resident;
}

TEST_F(RequestReader, TouchesNoMemoryForBytesThatDoNotCome) {
    send(
        "?\0\0\0\x40"
        "echo:x"s);  // announces a gigabyte
    const long before = resident_pages();
    long meanwhile = 0;
    testing::internal::CaptureStderr();
    std::thread late([&] {
        // By now the reader waits; should it not yet, it has all the less touched.
        ::usleep(20'000);
        meanwhile = resident_pages();
        ::shutdown(client_.get(), SHUT_WR);
    });
    serve_client();
    EXPECT_TRUE(is_released());
    late.join();
    testing::internal::GetCapturedStderr();
    EXPECT_LT(meanwhile - before, 256);  // pages: a mebibyte
}
#endif

TEST_F(RequestReader, WaitsInTheCallForTheRestOfThePayload) {
    const std::string frame = request_frame_of("echo:" + std::string(50, 'y'));
    send(std::string_view(frame).substr(0, 5));
    std::thread slow([&] {
        for (const char& byte : frame.substr(5)) {
            ::usleep(100);
            send({&byte, 1});
        }
    });
    serve_client();
    EXPECT_TRUE(is_released());
    slow.join();
    EXPECT_EQ(receive_all(), code_of(50) + std::string(50, 'y'));
}

TEST_F(RequestReader, TakesInAPayloadLargerThanTheSocketSBuffer) {
    const std::string large(3'000'000, 'z');
    const std::string frame = request_frame_of("echo:" + large);
    std::string reply;
    std::thread client([&] {
        send(frame);
        reply = receive_all();
    });
    serve_client();
    run_until_released();
    client.join();
    EXPECT_EQ(reply, code_of(3'000'000) + large);
}

class RequestReaderSizes : public one_client, public testing::WithParamInterface<std::size_t> {};

// Payloads that end just before and behind the end of what one read takes in.
TEST_P(RequestReaderSizes, TakesInAPayloadThatEndsNearTheEndOfItsBuffer) {
    const std::string text(GetParam(), 'q');
    EXPECT_EQ(request("echo:" + text), code_of(static_cast<int32_t>(text.size())) + text);
    EXPECT_EQ(g_seen.argument, text);
}

INSTANTIATE_TEST_SUITE_P(Around4096, RequestReaderSizes,
                         testing::Range(std::size_t{4096 - 10 - 4}, std::size_t{4096 - 10 + 5}));

TEST_F(RequestReader, EndsThePayloadAtTheFrameSEnd) {
    EXPECT_EQ(reply_to(request_frame_of("echo:hello") + "rest"), code_of(5) + "hello");
    EXPECT_EQ(g_seen.argument, "hello");
}

TEST_F(RequestReader, IgnoresBytesBehindTheFrame) {
    EXPECT_EQ(reply_to(request_frame_of("echo:hello") + request_frame_of("echo:again")),
              code_of(5) + "hello");
    EXPECT_EQ(g_seen.calls, 1);
}

TEST_F(RequestReader, IgnoresMoreBytesBehindTheFrameThanOneReadTakes) {
    EXPECT_EQ(reply_to(request_frame_of("echo:hello") + std::string(30'000, '?')),
              code_of(5) + "hello");
}

TEST_F(RequestReader, AnswersAClientThatHasClosedItsSendingHalf) {
    send(request_frame_of("echo:hello"));
    ::shutdown(client_.get(), SHUT_WR);
    serve_client();
    EXPECT_TRUE(is_released());
    EXPECT_EQ(receive_all(), code_of(5) + "hello");
}

}  // namespace
}  // namespace veltrancord
