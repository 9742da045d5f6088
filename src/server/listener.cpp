#include "server/listener.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "leaf/message.h"
#include "leaf/termination.h"

namespace veltrancord {

namespace {

constexpr const char* log_name = "do_accept";

constexpr int kept_free = 8;  // descriptors

// Milliseconds for which the listening socket is left alone after an accept has failed: long enough
// not to spin, short enough not to be felt.
constexpr int32_t pause_length = 100;

owned_fd accept_client(const request_server& server) {
    // SO_REUSEADDR, usual for accepted sockets, would be a system call for nothing: a local socket
    // has no address that anyone could use again.
    return owned_fd(::accept4(server.listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

// How many clients there can be at a time, give or take what the service itself has open.
std::size_t places(const request_server& server) {
    return static_cast<std::size_t>(std::max(server.highest_fd - server.listener.fd, 1));
}

void resume_accepting(void* argument) {
    request_server& server = *static_cast<request_server*>(argument);
    server.pause_timer = nullptr;  // it has fired
    if (!start_listening(server)) {
        server.pause_timer = server.loop.add_timer(pause_length, true, resume_accepting, &server);
    }
}

// Without memory for the timer the socket stays watched: better to spin than to be deaf.
void pause_accepting(request_server& server) {
    server.pause_timer = server.loop.add_timer(pause_length, true, resume_accepting, &server);
    if (server.pause_timer != nullptr) {
        server.loop.remove(server.accept_event);
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
void report_refusal(request_server& server, int error) {
    if (!server.refusal_reported && !g_terminating.load()) {
        print_error("%s accept: %s!!\n", log_name, std::strerror(error));
        server.refusal_reported = true;
    }
}

void accept_failed(request_server& server, int error) {
    report_refusal(server, error);
    if (is_shut_down(server.listener.fd)) {
        server.loop.remove(server.accept_event);
        finish_clients(server);
        return;
    }
    switch (error) {
        case EAGAIN:
        case EINTR:
        case ECONNABORTED:
            break;  // nobody is waiting, or someone still is and the next pass tries again
        default:
            pause_accepting(server);
    }
}

bool index_commands(request_server& server, std::span<const command_row> table) {
    try {
        server.commands = command_index(table);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

int highest_client_fd() {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) < 0 || limit.rlim_cur > INT_MAX) {
        return INT_MAX;
    }
    return static_cast<int>(limit.rlim_cur) - 1 - kept_free;
}

// A client whose request is there already, as is usual, is served at once and needs no events.
void do_accept(void* argument) {
    request_server& server = *static_cast<request_server*>(argument);
    owned_fd fd = accept_client(server);
    if (!fd) {
        accept_failed(server, errno);
        return;
    }
    // A newcomer that nothing could be done for would only hold what the others need: it is closed.
    if (fd.get() > server.highest_fd) {
        report_refusal(server, EMFILE);
        return;
    }
    server.refusal_reported = false;
    std::unique_ptr<client_pass> pass;
    if (server.gate != nullptr && !server.gate->admit({fd.get(), pass}, places(server))) {
        return;
    }
    connection* const client = open_connection(server, std::move(fd), std::move(pass));
    if (client == nullptr || !serve(*client)) {
        print_error("%s Allocate memory fail!!\n", log_name);
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
    server.highest_fd = highest_client_fd();
    server.listener.change_counter = start.change_counter;
    server.listener.sessions = start.sessions;
    server.follow_ups = start.follow_ups;
    server.gate = start.gate;
    start.lists_ready.wait();
    if (!index_commands(server, start.commands) || !start_listening(server)) {
        print_error("%s Allocate memory fail!!\n", log_name);
        return nullptr;
    }
    server.loop.run();
    if (start.socket_gone != nullptr) {
        start.socket_gone();
    }
    return nullptr;
}

}  // namespace veltrancord
