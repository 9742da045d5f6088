#include "server/listener.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "leaf/message.h"
#include "leaf/termination.h"
#include "server/connection.h"
#include "server/receiver.h"

namespace veltrancord {

namespace {

constexpr const char* log_name = "do_accept";

// Milliseconds for which the listening socket is left alone after a newcomer could be neither taken
// nor turned away: long enough not to spin, short enough not to be felt.
constexpr int32_t accept_pause = 100;

// Newcomers that are taken before the loop looks after all others again.
constexpr int most_newcomers = 16;

owned_fd accept_client(const request_server& server) {
    // SO_REUSEADDR, usual for accepted sockets, would be a system call for nothing: a local socket
    // has no address that anyone could use again.
    return owned_fd(::accept4(server.listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

void open_reserve(request_server& server) {
    if (!server.reserve) {
        server.reserve.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
}

void resume_accepting(void* argument) {
    request_server& server = *static_cast<request_server*>(argument);
    server.accept_pause = nullptr;  // it has fired
    open_reserve(server);
    if (!start_listening(server)) {
        server.accept_pause = server.loop.add_timer(accept_pause, true, resume_accepting, &server);
    }
}

// Without memory for the timer the socket stays watched: better to spin than to be deaf.
void pause_accepting(request_server& server) {
    server.accept_pause = server.loop.add_timer(accept_pause, true, resume_accepting, &server);
    if (server.accept_pause != nullptr) {
        server.loop.remove(server.accept_event);
    }
}

// No descriptor is left for a newcomer. One is kept in reserve to accept it with and close it at
// once: left in the backlog it would wake the loop for ever.
void turn_away(request_server& server) {
    server.reserve.reset();
    const bool turned_away = static_cast<bool>(accept_client(server));
    open_reserve(server);
    if (!turned_away) {
        pause_accepting(server);
    }
}

// Whether a process that shares the listening socket has shut it down. The error does not say so:
// without waiting, accept fails on such a socket as it does when nobody wants to connect, while
// poll calls it readable for ever.
bool is_shut_down(int fd) {
    pollfd state = {fd, 0, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLNVAL)) != 0;
}

// This process has shut the socket down itself when it is being terminated: no failure then.
void report_accept_failure(request_server& server, int error) {
    if (!server.refusal_reported && !g_terminating.load()) {
        print_error("%s accept: %s!!\n", log_name, std::strerror(error));
        server.refusal_reported = true;
    }
}

void accept_failed(request_server& server, int error) {
    report_accept_failure(server, error);
    if (is_shut_down(server.listener.fd)) {
        server.loop.remove(server.accept_event);  // nobody can come any more
        return;
    }
    switch (error) {
        case EMFILE:
        case ENFILE:
            turn_away(server);
            break;
        case EAGAIN:
        case EINTR:
        case ECONNABORTED:
            break;  // nobody is waiting, or someone still is and the next pass tries again
        default:
            pause_accepting(server);
    }
}

// A client whose request is there already needs no events. Where the one processor goes to the
// server as soon as a client connects, none has sent anything yet, and looking is a call for
// nothing.
//
// Return: whether the request was there, and was served.
bool serve_early(request_server& server, connection& client) {
    if (!server.early_request.worth_a_try()) {
        return false;
    }
    if (do_read(client) == read_outcome::over) {
        return true;
    }
    server.early_request.was_wrong();
    return false;
}

// Return: as serve_early.
bool welcome(request_server& server, owned_fd fd) {
    server.refusal_reported = false;
    connection* const client = open_connection(server, std::move(fd));
    if (client != nullptr && serve_early(server, *client)) {
        return true;
    }
    if (client == nullptr || !await_request(*client)) {
        print_error("%s Allocate memory fail!!\n", log_name);
        if (client != nullptr) {
            release_item(client);
        }
    }
    return false;
}

// Of a crowd several are taken at once, without asking poll before each. An accept that finds
// nobody costs as much as one that does, so it is tried only where clients are ahead of the server.
void take_crowd(request_server& server) {
    for (int taken = 1; taken < most_newcomers && server.further_newcomer.worth_a_try(); ++taken) {
        owned_fd fd = accept_client(server);
        if (!fd) {
            server.further_newcomer.was_wrong();
            return;  // if something else has failed, it fails in the next pass again
        }
        if (!welcome(server, std::move(fd))) {
            return;
        }
    }
}

}  // namespace

void do_accept(void* argument) {
    request_server& server = *static_cast<request_server*>(argument);
    owned_fd fd = accept_client(server);
    if (!fd) {
        accept_failed(server, errno);
        return;
    }
    if (welcome(server, std::move(fd))) {
        take_crowd(server);
    }
}

bool start_listening(request_server& server) {
    server.accept_event =
        server.loop.add_descriptor(server.listener.fd, watch_direction::read, do_accept, &server);
    return server.accept_event != nullptr;
}

void* server_thread(void* argument) {
    server_start& start = *static_cast<server_start*>(argument);
    if (start.fd < 1) {
        return nullptr;
    }
    request_server server;
    server.listener.fd = start.fd;
    server.listener.change_counter = start.change_counter;
    server.listener.sessions = start.sessions;
    start.lists_ready.wait();
    open_reserve(server);
    if (!start_listening(server)) {
        print_error("%s Allocate memory fail!!\n", log_name);
        return nullptr;
    }
    server.loop.run();
    return nullptr;
}

}  // namespace veltrancord
