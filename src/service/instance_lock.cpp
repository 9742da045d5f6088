#include "service/instance_lock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "leaf/bounded_text.h"
#include "leaf/clock.h"
#include "leaf/message.h"

namespace veltrancord {

namespace {

constexpr int64_t longest_wait = 5000;      // milliseconds, for an instance that is ending
constexpr useconds_t retry_pause = 20'000;  // microseconds

std::string directory_of(std::string_view file) {
    const std::size_t slash = file.rfind('/');
    if (slash == std::string_view::npos) {
        return ".";
    }
    return std::string(file.substr(0, std::max<std::size_t>(slash, 1)));
}

owned_fd open_directory(const char* path) {
    return owned_fd(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool is_same_file(const owned_fd& one, const owned_fd& other) {
    struct stat first = {};
    struct stat second = {};
    return one && other && ::fstat(one.get(), &first) == 0 && ::fstat(other.get(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Return: whether nobody else has it locked; there is nothing to lock in an empty owner.
bool lock_by(int64_t deadline, const owned_fd& directory) {
    while (directory && ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            return true;
        }
        if (monotonic_milliseconds() >= deadline) {
            return false;
        }
        ::usleep(retry_pause);
    }
    return true;
}

// Return: whether somebody listens at `path`; `connection` stays empty where he has no room for one
// more client.
bool is_answered(const char* path, owned_fd& connection) {
    owned_fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!client || !copy_bounded(address.sun_path, path)) {
        return false;
    }
    if (::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        connection = std::move(client);
        return true;
    }
    return errno == EAGAIN;
}

// The connection ends with him who answers it, so that one of them does for all of the wait.
bool is_silent_by(int64_t deadline, const char* path) {
    owned_fd connection;
    while (is_answered(path, connection)) {
        const int64_t left = deadline - monotonic_milliseconds();
        if (left <= 0) {
            return false;
        }
        pollfd end = {connection.get(), POLLIN, 0};
        ::poll(&end, 1, static_cast<int>(left));
        connection.reset();
        ::usleep(retry_pause);
    }
    return true;
}

bool report_in_use(const char* what, const char* socket_path) {
    owned_fd connection;
    ucred listener = {};
    socklen_t size = sizeof listener;
    if (is_answered(socket_path, connection) && connection &&
        ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &listener, &size) == 0 &&
        listener.pid > 0) {
        print_error("%s is in use by another service, process %d\n", what, listener.pid);
    } else {
        print_error("%s is in use by another service\n", what);
    }
    return false;
}

}  // namespace

bool keep_others_out(const service_options& options, const char* socket_path, instance_lock& lock) {
    const int64_t deadline = monotonic_milliseconds() + longest_wait;
    const std::string log_directory = directory_of(options.event_log_path);
    lock.configuration = open_directory(options.xml_path);
    lock.event_log = open_directory(log_directory.c_str());
    if (is_same_file(lock.configuration, lock.event_log)) {
        lock.event_log.reset();  // a lock of its own would wait for the other one
    }
    if (!lock_by(deadline, lock.configuration)) {
        return report_in_use(options.xml_path, socket_path);
    }
    if (!lock_by(deadline, lock.event_log)) {
        return report_in_use(log_directory.c_str(), socket_path);
    }
    return is_silent_by(deadline, socket_path) || report_in_use(socket_path, socket_path);
}

}  // namespace veltrancord
