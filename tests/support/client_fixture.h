// For tests: a request server with a table of its own and a client at the other end of a socket
// pair.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "leaf/byte_order.h"
#include "server/serving.h"

namespace veltrancord {

inline std::string request_frame_of(std::string_view payload) {
    unsigned char length[4];
    store_le32(length, static_cast<uint32_t>(payload.size()));
    std::string frame = "?";
    frame.append(reinterpret_cast<const char*>(length), sizeof length);
    frame.append(payload);
    return frame;
}

inline std::string code_of(int32_t result) {
    unsigned char code[4];
    store_le32(code, static_cast<uint32_t>(result));
    return {reinterpret_cast<const char*>(code), sizeof code};
}

// What the handlers below saw last.
struct seen_by_handlers {
    int calls = 0;
    std::string argument;
    std::size_t size = 0;
    bool absent = false;
    int32_t row = -1;
    std::string follow_ups;  // the numbers of those that ran
};
inline seen_by_handlers g_seen;

namespace test_handlers {

inline void look_at(command_argument argument, int32_t row) {
    ++g_seen.calls;
    g_seen.argument = argument.text();
    g_seen.size = argument.size;
    g_seen.absent = argument.absent();
    g_seen.row = row;
}

// Replies with the argument.
inline int32_t echo(connection_record& connection, command_argument argument, int32_t row) {
    look_at(argument, row);
    EXPECT_TRUE(connection.reply.open(1 << 26) &&
                connection.reply.append({argument.data, argument.size}));
    return static_cast<int32_t>(argument.size);
}

// The argument is a number, and the result too; no body.
inline int32_t code(connection_record& /*connection*/, command_argument argument, int32_t row) {
    look_at(argument, row);
    return std::stoi(std::string(argument.text()));
}

// As code, but with the body "abc" opened.
inline int32_t code_with_body(connection_record& connection, command_argument argument,
                              int32_t row) {
    look_at(argument, row);
    EXPECT_TRUE(connection.reply.open(1000) && connection.reply.append("abc"));
    return std::stoi(std::string(argument.text()));
}

// The argument is a number, and the reply as many "q".
inline int32_t fill(connection_record& connection, command_argument argument, int32_t row) {
    look_at(argument, row);
    const std::string body(std::stoul(std::string(argument.text())), 'q');
    EXPECT_TRUE(connection.reply.open(body.size()) && connection.reply.append(body));
    return static_cast<int32_t>(body.size());
}

// As a library does for which memory has run out.
inline int32_t out_of_memory(connection_record& connection, command_argument argument,
                             int32_t row) {
    look_at(argument, row);
    EXPECT_TRUE(connection.reply.open(1000) && connection.reply.append("half of a rep"));
    throw std::bad_alloc();
}

inline constexpr std::array<command_row, 7> rows = {{
    {"echo", echo, ""},
    {"code", code, ""},
    {"body", code_with_body, ""},
    {"throw", out_of_memory, ""},
    {"empty", nullptr, ""},
    {"code", echo, ""},
    {"fill", fill, ""},
}};

}  // namespace test_handlers

// A client with a connection of its own to a server, which the tests drive by hand.
class one_client : public testing::Test {
  protected:
    one_client() {
        g_seen = {};
        server_.commands = command_index(test_handlers::rows);
        server_.follow_ups = follow_ups_;
        connect_again();
    }
    // Another client, after the last one has ended.
    void connect_again() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        client_.reset(ends[0]);
        server_end_ = ends[1];
        connection_ = open_connection(server_, owned_fd(ends[1]));
        EXPECT_NE(connection_, nullptr);
    }

    // Lets the server do what it can for the client.
    void serve_client() { EXPECT_TRUE(serve(*connection_)); }

    // Whether the server has let the connection go: its descriptor is closed then.
    [[nodiscard]] bool is_released() const { return ::fcntl(server_end_, F_GETFD) < 0; }

    // Lets the loop send the rest of a reply while somebody reads.
    void run_until_released() {
        while (!is_released()) {
            server_.loop.run_pass();
        }
    }

    void send(std::string_view bytes) const {
        ASSERT_EQ(::send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Reads until the server has closed the connection.
    [[nodiscard]] std::string receive_all() const {
        std::string all;
        char some[4096];
        for (;;) {
            const ssize_t count = ::recv(client_.get(), some, sizeof some, 0);
            if (count <= 0) {
                EXPECT_EQ(count, 0) << "the connection was reset";
                return all;
            }
            all.append(some, static_cast<std::size_t>(count));
        }
    }

    // One request that has arrived whole, and its reply.
    std::string reply_to(std::string_view bytes) {
        send(bytes);
        serve_client();
        EXPECT_TRUE(is_released());
        return receive_all();
    }
    std::string request(std::string_view payload) { return reply_to(request_frame_of(payload)); }

    // What the server prints when `bytes` are there and then, if asked for, the end of the stream.
    std::string failure_of(std::string_view bytes, bool end_of_stream = false) {
        send(bytes);
        if (end_of_stream) {
            ::shutdown(client_.get(), SHUT_WR);
        }
        testing::internal::CaptureStderr();
        serve_client();
        EXPECT_TRUE(is_released());
        std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_EQ(receive_all(), "");
        return printed;
    }

    std::array<follow_up*, 2> follow_ups_ = {[] { g_seen.follow_ups += '1'; },
                                             [] { g_seen.follow_ups += '2'; }};
    request_server server_;
    owned_fd client_;
    int server_end_ = -1;
    connection* connection_ = nullptr;
};

}  // namespace veltrancord
