// Who may be served, and what may be run: the server asks at the accept and before each handler,
// and whoever is handed in as the gate answers. Server thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "handler/handler.h"

namespace veltrancord {

// What a gate keeps of one client. The client owns it, from the accept to its end.
class client_pass {
  public:
    client_pass() = default;
    client_pass(const client_pass&) = delete;
    client_pass& operator=(const client_pass&) = delete;
    virtual ~client_pass() = default;
};

// A client before its gate: its socket, borrowed, and its pass, which may be null.
struct gate_visitor {
    int fd = -1;
    std::unique_ptr<client_pass>& pass;
};

// A row of the command table and what came with the request.
struct gated_command {
    std::string_view name;
    command_handler* handler = nullptr;
    int32_t row = -1;
    command_argument argument;
};

class command_gate {
  public:
    command_gate() = default;
    command_gate(const command_gate&) = delete;
    command_gate& operator=(const command_gate&) = delete;
    virtual ~command_gate() = default;

    // Whether a newcomer may have one of the `places` that there are for clients. Throws nothing.
    [[nodiscard]] virtual bool admit(const gate_visitor& visitor, std::size_t places) noexcept = 0;

    // Milliseconds for the payload that the client has announced; -1: no end. Throws nothing.
    [[nodiscard]] virtual int payload_time(const gate_visitor& visitor) noexcept = 0;

    // Runs the command's handler, or refuses to.
    //
    // Return: the handler's result, or result_denied without having run it. May throw what handlers
    // throw.
    [[nodiscard]] virtual int32_t run(const gate_visitor& visitor, const gated_command& command,
                                      connection_record& connection) = 0;
};

}  // namespace veltrancord
