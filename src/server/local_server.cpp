#include "server/local_server.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "leaf/bounded_text.h"
#include "leaf/message.h"
#include "leaf/owned_fd.h"

namespace veltrancord {

namespace {

constexpr int backlog = 128;

int failed(const char* what, owned_fd socket) {
    const int error = errno;
    socket.reset();
    print_error("%s: %s", what, std::strerror(error));
    return -1;
}

// Anybody may make a directory in /tmp, so an empty one must not keep the service from starting.
//
// Return: why something may still be there, as errno; 0 when nothing is.
int clear_place(const char* path) {
    if (::unlink(path) == 0 || errno == ENOENT) {
        return 0;
    }
    return errno == EISDIR && ::rmdir(path) == 0 ? 0 : errno;
}

}  // namespace

int create_local_server(const char* path) {
    owned_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket) {
        return failed("socket", std::move(socket));
    }
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
        return failed("unable to set reuse", std::move(socket));
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!copy_bounded(address.sun_path, path)) {
        errno = ENAMETOOLONG;
        return failed("unable to bind", std::move(socket));
    }
    const int obstacle = clear_place(path);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        if (errno == EADDRINUSE) {
            print_error("%s is in the way: %s\n", path, std::strerror(obstacle));
        }
        return failed("unable to bind", std::move(socket));
    }
    if (::listen(socket.get(), backlog) < 0) {
        return failed("listen", std::move(socket));
    }
    return socket.release();
}

void process_release(int fd, socket_release release) {
    static constexpr char text[] = "process release....\n";
    print_error_text({text, sizeof text - 1});
    if (fd < 0) {
        return;
    }
    if (release == socket_release::for_all) {
        ::shutdown(fd, SHUT_RDWR);
    }
    ::close(fd);
}

}  // namespace veltrancord
