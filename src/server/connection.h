// One accepted client: a request, its reply, and the events that lead from one to the other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "handler/handler.h"
#include "handler/reply_text.h"
#include "leaf/owned_fd.h"

namespace veltrancord {

struct loop_event;
struct request_server;

inline constexpr int32_t idle_limit = 30'000;  // milliseconds until a silent client is let go

struct free_payload {
    void operator()(char* payload) const noexcept { std::free(payload); }
};

// Owned by nobody but the events that lead to it: open_connection makes it, release_item ends it.
// Server thread only.
struct connection : connection_record {
    request_server* server = nullptr;
    owned_fd fd;

    // A request that is too long to stay where it was received: its bytes and a NUL.
    std::unique_ptr<char, free_payload> payload_block;

    int32_t result = 0;
    std::array<unsigned char, reply_text::frame_header> code = {};  // the frame without a body
    std::string_view frame;                                         // what is to be sent
    std::size_t written = 0;                                        // bytes of it that are sent

    loop_event* read_event = nullptr;
    loop_event* idle_timer = nullptr;
    loop_event* write_event = nullptr;
};

// A connection on the accepted socket `fd`, which must not block.
//
// Return: null when memory could not be had; `fd` is then closed. Nothing is printed.
[[nodiscard]] connection* open_connection(request_server& server, owned_fd fd);

// Waits for the client's request: watches the socket and starts the idle timer.
//
// Return: false when memory could not be had; the connection is then still there. Nothing is
// printed.
[[nodiscard]] bool await_request(connection& client);

// Ends the connection: takes its events out of the loop, closes the socket and frees everything.
// The pointer is dead afterwards. A null pointer prints "release_item NULL Pointer".
void release_item(connection* client);

}  // namespace veltrancord
