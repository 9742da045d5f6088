// Taking clients from the listening socket, and the thread that serves them.
#pragma once

#include <atomic>
#include <cstdint>
#include <latch>
#include <span>

#include "server/serving.h"

namespace veltrancord {

// The highest number that a client's descriptor may have: 8 above it stay free for what requests
// open, a save or a program's input. Numbers are given out from the lowest on.
[[nodiscard]] int highest_client_fd();

// Accepts one client and serves it as far as it goes. `argument` is the request_server.
void do_accept(void* argument);

// Starts watching server.listener.fd, which must be set.
//
// Return: false when memory could not be had. Nothing is printed.
[[nodiscard]] bool start_listening(request_server& server);

// What the server thread is started with; lives as long as the process.
struct server_start {
    int fd = -1;  // the listening socket
    std::atomic<uint32_t>* change_counter = nullptr;
    session_lists* sessions = nullptr;
    std::span<const command_row> commands;   // outlives the thread, as the follow-ups do
    std::span<follow_up* const> follow_ups;  // serving.h tells when they run
    command_gate* gate = nullptr;            // outlives it, too; null: all may pass
    std::latch lists_ready{1};  // counted down when handlers may run; clients wait until then

    // Called by the server thread when somebody has shut the socket down, and the clients that it
    // had are done with; null: nothing is.
    void (*socket_gone)() = nullptr;
};

// The server thread; `argument` is its server_start. Returns at once when the listening descriptor
// is below 1, else when the socket was shut down and socket_gone has been called.
void* server_thread(void* argument);

}  // namespace veltrancord
