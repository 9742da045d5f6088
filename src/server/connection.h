// One accepted client: its request, its reply, and the events that call for it.
#pragma once

#include <string.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <memory>
#include <string_view>

#include "handler/gate.h"
#include "handler/handler.h"
#include "leaf/owned_fd.h"

namespace veltrancord {

struct loop_event;
struct request_server;

// What is to come next for a client. Each step of serving it returns one of these and leaves the
// client where it is; serving.cpp alone acts on it.
enum class next_step {
    wait_to_read,   // no request has begun
    run_command,    // the request is complete
    wait_to_write,  // the socket takes no more of the reply for now
    over,           // served, or failed: the client is to be ended
};

// Frees a payload, which may hold a secret: what was received of it is wiped, and no more, since
// wiping what was announced and never sent would make its pages resident.
struct free_payload {
    std::size_t used = 0;  // bytes received

    void operator()(char* payload) const noexcept {
        ::explicit_bzero(payload, used);
        std::free(payload);
    }
};

// Owned by request_server::clients from the accept to the end; all others borrow it for a call.
// Server thread only.
struct connection : connection_record {
    request_server* server = nullptr;
    std::list<connection>::iterator place;  // in the list that owns it
    owned_fd fd;

    // A request that is too long to stay where it was received: its bytes and a NUL.
    std::unique_ptr<char, free_payload> payload_block;

    std::unique_ptr<client_pass> pass;  // the gate's, where there is one

    int32_t result = 0;
    std::string_view frame;   // what is to be sent, in the reply; empty without a text
    std::size_t written = 0;  // bytes of it that are sent

    loop_event* read_event = nullptr;
    loop_event* idle_timer = nullptr;
    loop_event* write_event = nullptr;
};

}  // namespace veltrancord
