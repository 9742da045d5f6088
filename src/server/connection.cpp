#include "server/connection.h"

#include <sys/socket.h>

#include <new>
#include <utility>

#include "leaf/message.h"
#include "server/event_loop.h"
#include "server/receiver.h"
#include "server/request_server.h"

namespace veltrancord {

namespace {

constexpr std::size_t discard_size = 4096;
constexpr int most_discards = 16;

// A local socket that is closed with bytes still unread resets its peer, and the peer may then find
// an error where it looks for the end of its reply. Whoever sends without end is reset all the
// same.
void discard_unread(int fd) {
    char unread[discard_size];
    for (int turn = 0; turn < most_discards; ++turn) {
        if (::recv(fd, unread, sizeof unread, MSG_DONTWAIT) < static_cast<ssize_t>(sizeof unread)) {
            return;
        }
    }
}

void on_readable(void* argument) {
    static_cast<void>(do_read(*static_cast<connection*>(argument)));
}

void on_idle(void* argument) {
    connection* const client = static_cast<connection*>(argument);
    client->idle_timer = nullptr;  // it has fired, so the loop frees it by itself
    release_item(client);
}

}  // namespace

connection* open_connection(request_server& server, owned_fd fd) {
    connection* const client = new (std::nothrow) connection;
    if (client != nullptr) {
        client->server = &server;
        client->listener = &server.listener;
        client->fd = std::move(fd);
    }
    return client;
}

bool await_request(connection& client) {
    event_loop& loop = client.server->loop;
    client.idle_timer = loop.add_timer(idle_limit, true, on_idle, &client);
    client.read_event =
        loop.add_descriptor(client.fd.get(), watch_direction::read, on_readable, &client);
    return client.idle_timer != nullptr && client.read_event != nullptr;
}

void release_item(connection* client) {
    if (client == nullptr) {
        print_error("%s NULL Pointer\n", "release_item");
        return;
    }
    const std::unique_ptr<connection> owner(client);
    event_loop& loop = client->server->loop;
    loop.remove(client->idle_timer);
    loop.remove(client->read_event);
    loop.remove(client->write_event);
    if (client->fd) {
        discard_unread(client->fd.get());
    }
}

}  // namespace veltrancord
