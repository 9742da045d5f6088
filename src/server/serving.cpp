// One client, from its request to its end
//
// Every client is owned by the server's list. The steps (do_read, dispatch, the follow-ups,
// write_reply) borrow it for a call and return what is to come next; none of them can end it, so
// none of them and none of their callers can meet one that is gone. The list owns, and not a
// pointer handed from the loop to the step and back: so a client that goes on waiting costs nothing
// and cannot fail to be put back, and all that wait are at hand when the server ends.
#include "server/serving.h"

#include <sys/socket.h>

#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "leaf/message.h"
#include "leaf/termination.h"
#include "server/receiver.h"
#include "server/sender.h"

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

// What a follow-up step could not do for want of memory is tried again after the next command,
// since the marks that called for it are still set.
void run_follow_up(follow_up* step) {
    try {
        step();
    } catch (const std::exception&) {
        return;
    }
}

// Runs the command of a complete request, and answers it.
next_step answer(connection& client, std::span<char> payload) {
    const request_server& server = *client.server;
    gated_visit visit{server.gate, {client.fd.get(), client.pass}};
    const dispatched done =
        dispatch(server.commands, client, payload, server.gate != nullptr ? &visit : nullptr);
    client.result = done.result;
    if (done.outcome == dispatch_outcome::no_name) {
        return next_step::over;
    }
    if (done.outcome == dispatch_outcome::unknown) {
        return write_code(client);
    }
    const bool queued = queue_reply(client) == 0;
    // The reply goes out only now: a client that holds it finds its change saved. A process that is
    // being terminated saves nothing any more, so it reports no success either.
    for (follow_up* const step : server.follow_ups) {
        run_follow_up(step);
    }
    if (!queued || (client.result >= 0 && g_terminating.load())) {
        return next_step::over;
    }
    return write_reply(client);
}

next_step receive_and_answer(connection& client) {
    received_request request;
    const next_step next = do_read(client, request);
    return next == next_step::run_command ? answer(client, request.payload) : next;
}

void on_readable(void* argument) {
    static_cast<void>(serve(*static_cast<connection*>(argument)));
}

void on_idle(void* argument) {
    release_item(static_cast<connection*>(argument));
}

bool proceed(connection& client, next_step next);

void on_writable(void* argument) {
    connection& client = *static_cast<connection*>(argument);
    static_cast<void>(proceed(client, write_reply(client)));
}

// The idle time counts from the first wait on.
bool await_request(connection& client) {
    event_loop& loop = client.server->loop;
    if (client.read_event == nullptr) {
        client.idle_timer = loop.add_timer(idle_limit, true, on_idle, &client);
        client.read_event =
            loop.add_descriptor(client.fd.get(), watch_direction::read, on_readable, &client);
    }
    return client.idle_timer != nullptr && client.read_event != nullptr;
}

// Nothing more is read once the request is there, so the loop must not wait for it either.
bool await_writable(connection& client) {
    event_loop& loop = client.server->loop;
    loop.remove(client.idle_timer);
    loop.remove(client.read_event);
    if (client.write_event == nullptr) {
        keep_unsent(client);
        client.write_event =
            loop.add_descriptor(client.fd.get(), watch_direction::write, on_writable, &client);
    }
    return client.write_event != nullptr;
}

// Hands the client to the loop, or ends it.
//
// Return: false when memory to wait could not be had.
bool proceed(connection& client, next_step next) {
    if (next == next_step::over || (next == next_step::wait_to_read && client.server->finishing)) {
        release_item(&client);
        return true;
    }
    if (next == next_step::wait_to_read ? await_request(client) : await_writable(client)) {
        return true;
    }
    release_item(&client);
    return false;
}

}  // namespace

connection* open_connection(request_server& server, owned_fd fd,
                            std::unique_ptr<client_pass> pass) {
    try {
        connection& client = server.clients.emplace_front();
        client.place = server.clients.begin();
        client.server = &server;
        client.listener = &server.listener;
        client.fd = std::move(fd);
        client.pass = std::move(pass);
        return &client;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool serve(connection& client) {
    return proceed(client, receive_and_answer(client));
}

void finish_clients(request_server& server) {
    server.finishing = true;
    for (auto at = server.clients.begin(); at != server.clients.end();) {
        connection& client = *at++;  // which may end below
        if (client.read_event != nullptr) {
            static_cast<void>(serve(client));
        }
    }
    const auto stop = [](void* loop) { static_cast<event_loop*>(loop)->stop(); };
    if (server.clients.empty() ||
        server.loop.add_timer(idle_limit, true, stop, &server.loop) == nullptr) {
        server.loop.stop();
    }
}

void release_item(connection* client) {
    if (client == nullptr) {
        print_error("%s NULL Pointer\n", "release_item");
        return;
    }
    request_server& server = *client->server;
    server.loop.remove(client->idle_timer);
    server.loop.remove(client->read_event);
    server.loop.remove(client->write_event);
    discard_unread(client->fd.get());
    server.clients.erase(client->place);
    if (server.finishing && server.clients.empty()) {
        server.loop.stop();
    }
}

}  // namespace veltrancord
