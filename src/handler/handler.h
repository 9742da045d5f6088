// What a command handler gets and gives: the ground that the server and every subsystem share.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "handler/reply_text.h"

namespace veltrancord {

struct session_lists;  // access/sessions.h

// One per worker. Handlers reach the state that outlives a request through it.
struct listener_record {
    int fd = -1;  // the listening socket; not owned, the process ends with it

    // Commands that changed the configuration since the last backup. The server thread adds, the
    // backup thread reads and clears. Owned by the worker's main routine, as the sessions are.
    std::atomic<uint32_t>* change_counter = nullptr;

    session_lists* sessions = nullptr;  // login sessions and captchas; server thread only
};

// The part of a connection that handlers see.
struct connection_record {
    reply_text reply;                     // stays closed when the command has no reply text
    listener_record* listener = nullptr;  // never null while a handler runs
};

// The argument of a command: the payload behind the first ":".
struct command_argument {
    char* data = nullptr;  // null: no argument at all. Else `size` bytes and a NUL behind them,
                           // owned by the connection; the handler may change them in place.
    std::size_t size = 0;  // bytes that the client sent; NUL bytes may be among them

    [[nodiscard]] bool absent() const noexcept { return data == nullptr; }

    // The text up to the first NUL.
    [[nodiscard]] std::string_view text() const noexcept {
        return data != nullptr ? std::string_view(data) : std::string_view();
    }
};

// A command handler. Runs on the server thread; requests are served one at a time.
//
// Return: a result code (leaf/result.h). A positive result with an opened reply is the length of
// the reply text; the server fills the text up with zero bytes to that length, or cuts it.
using command_handler = int32_t(connection_record& connection, command_argument argument,
                                int32_t row);

}  // namespace veltrancord
