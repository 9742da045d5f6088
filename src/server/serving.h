// Serving clients: receive, dispatch, follow-ups, send. The one place where a client goes on, and
// where it ends.
#pragma once

#include <climits>
#include <list>
#include <memory>
#include <span>

#include "handler/gate.h"
#include "handler/handler.h"
#include "leaf/owned_fd.h"
#include "server/connection.h"
#include "server/dispatch.h"
#include "server/event_loop.h"

namespace veltrancord {

inline constexpr int32_t idle_limit = 30'000;  // milliseconds until a silent client is let go

// What is done after every command that reached a handler.
using follow_up = void();

// What one worker's server thread works with. Server thread only.
struct request_server {
    // `now` gives the clocks of the loop's timers.
    explicit request_server(loop_moment (*now)() = clocks_now) : loop(now) {}

    event_loop loop;
    listener_record listener;
    std::list<connection> clients;  // owns them all

    // Table and follow-ups are handed in, and outlive the server. The follow-ups run once the reply
    // is queued and before it is sent, in this order.
    command_index commands;
    std::span<follow_up* const> follow_ups;

    command_gate* gate = nullptr;  // handed in too, and outlives the server; null: all may pass

    int highest_fd = INT_MAX;  // that a client may have; newcomers above it are turned away
    loop_event* accept_event = nullptr;
    loop_event* pause_timer = nullptr;  // runs while the listening socket is left alone
    bool refusal_reported = false;      // since the last newcomer that was taken
    bool finishing = false;             // no more requests are waited for
};

// A client on the accepted socket `fd`, which must not block, with what the gate keeps of it.
//
// Return: the client, which the server owns; null when memory could not be had, and `fd` is then
// closed. Nothing is printed.
[[nodiscard]] connection* open_connection(request_server& server, owned_fd fd,
                                          std::unique_ptr<client_pass> pass = nullptr);

// Takes the client as far as it goes without waiting for its socket, but for the rest of a request
// that has begun. It has ended then, or the loop calls for it again.
//
// Return: false when memory to wait could not be had, which ends the client.
[[nodiscard]] bool serve(connection& client);

// After the listening socket has gone: serves those whose requests have come, ends the others at
// once, and stops the loop when the last reply is sent, or after the time that a silent client has.
void finish_clients(request_server& server);

// Ends the client: takes its events out of the loop, closes its socket and frees everything. The
// pointer must not be used afterwards. A null pointer prints "release_item NULL Pointer".
void release_item(connection* client);

}  // namespace veltrancord
