// The floor: the least server that speaks the service's framing.
//
// It waits in poll, accepts, reads the request with one call (at once, since most clients have sent
// it by then), answers with one constant reply and closes. No command, no configuration, no
// allocation: what it costs is what any server with one connection per request costs, so the
// service's figures are given as ratios to it.
//
// Two things that the service does for its clients' sake, and that cost system time, can be added
// to see their share: --drain looks for bytes behind the request before it closes, as the service
// does so that no client is reset, and --threads has idle threads beside the serving one, which
// makes each system call on a descriptor dearer.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

int listen_on(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return -1;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ::unlink(path.c_str());
    if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, 128) != 0) {
        return -1;
    }
    return fd;
}

std::string make_reply(int32_t result) {
    std::string reply(4, '\0');
    std::memcpy(reply.data(), &result, 4);
    if (result > 0) {
        reply.append(static_cast<std::size_t>(result), 'x');
    }
    return reply;
}

struct client {
    std::size_t written = 0;
    bool answering = false;
};

// Return: true when the whole reply is out (or the client is gone).
bool write_reply(int fd, const std::string& reply, std::size_t& written) {
    while (written < reply.size()) {
        const ssize_t count =
            ::send(fd, reply.data() + written, reply.size() - written, MSG_NOSIGNAL);
        if (count < 0 && errno == EAGAIN) {
            return false;
        }
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    return true;
}

// Return: true when the client is done with.
bool serve_client(pollfd& watched, client& state, const std::string& reply) {
    static std::array<char, 65536> request;
    if (!state.answering) {
        if (::recv(watched.fd, request.data(), request.size(), 0) < 0 && errno == EAGAIN) {
            return false;
        }
        state.answering = true;
        watched.events = POLLOUT;
    }
    return write_reply(watched.fd, reply, state.written);
}

void finish(int fd, bool drain) {
    std::array<char, 4096> unread;
    if (drain) {
        while (::recv(fd, unread.data(), unread.size(), 0) == static_cast<ssize_t>(unread.size())) {
        }
    }
    ::close(fd);
}

void serve(int listener, const std::string& reply, bool drain) {
    std::vector<pollfd> watched{{listener, POLLIN, 0}};
    std::vector<client> clients(1);
    for (;;) {
        if (::poll(watched.data(), watched.size(), -1) < 0) {
            continue;
        }
        for (std::size_t i = watched.size(); i-- > 1;) {
            if (watched[i].revents != 0 && serve_client(watched[i], clients[i], reply)) {
                finish(watched[i].fd, drain);
                watched[i] = watched.back();
                watched.pop_back();
                clients[i] = clients.back();
                clients.pop_back();
            }
        }
        if ((watched[0].revents & POLLIN) != 0) {
            const int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            pollfd accepted{fd, POLLIN, 0};
            client state;
            if (fd >= 0 && serve_client(accepted, state, reply)) {
                finish(fd, drain);
            } else if (fd >= 0) {
                watched.push_back(accepted);
                clients.push_back(state);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("The least server that speaks the service's framing");
    std::string socket_path;
    int32_t result = -4;
    app.add_option("--socket", socket_path, "Path of the socket to listen on")->required();
    app.add_option("--result", result, "Result code; above 0: that many bytes follow it");
    bool drain = false;
    unsigned threads = 0;
    app.add_flag("--drain", drain, "Look for unread bytes before closing, as the service does");
    app.add_option("--threads", threads, "Idle threads beside the serving one");
    CLI11_PARSE(app, argc, argv);
    const int listener = listen_on(socket_path);
    if (listener < 0) {
        std::perror(socket_path.c_str());
        return 1;
    }
    for (unsigned thread = 0; thread < threads; ++thread) {
        std::thread([] {
            for (;;) {
                ::pause();
            }
        }).detach();
    }
    serve(listener, make_reply(result), drain);
}
