// Taking clients from the listening socket, and the thread that serves them.
#pragma once

#include <atomic>
#include <cstdint>
#include <latch>
#include <span>

#include "server/serving.h"

namespace veltrancord {

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
    std::latch lists_ready{1};  // counted down when handlers may run; clients wait until then
};

// The server thread; `argument` is its server_start. Returns at once when the listening descriptor
// is below 1, else never.
void* server_thread(void* argument);

}  // namespace veltrancord
