// What takes the messages must not be able to hold the service up: with a pipe that nobody reads,
// one write that waits for room stops every client. How to write without waiting depends on what
// the descriptor leads to:
//
// - A socket (the journal of an init system) takes a flag with each send.
// - A pipe, a FIFO and a terminal are opened once more at the start, non-blocking. Setting
//   O_NONBLOCK on the inherited descriptor would be wrong: that belongs to all who inherited it,
//   the launcher and every program that the service starts, and their own prints would fail.
// - Where that is not possible (no /proc, a pipe of another user, the child of a vfork, which has
//   closed it), a look whether there is room comes before each write. A writable pipe takes
//   PIPE_BUF bytes, so no more are written then. This leaves two gaps that the second opening does
//   not have: what another process prints in between, and a terminal with room for a part of a
//   line.
// - A file has always room, or none and says so.
//
// Not taken: RWF_NOWAIT, which pipes know from Linux 6.4 on and terminals not at all; a thread that
// prints, to which a signal handler could hand nothing over, and whose last lines would be lost at
// an end by _exit.
#include "leaf/message.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace veltrancord {

namespace {

// Room for a line that names two paths; a longer one is cut.
constexpr std::size_t longest_message = 9216;

struct outlet {
    int fd = -1;                        // the inherited one
    int own = -1;                       // what it leads to, opened again; -1: see above
    std::atomic<uint32_t> left_out{0};  // messages since the last one that was printed
    std::atomic<bool> cut{false};       // the last one that was printed ends within its line
    static_assert(std::atomic<uint32_t>::is_always_lock_free);
};

constinit outlet g_output{.fd = STDOUT_FILENO};
constinit outlet g_errors{.fd = STDERR_FILENO};

// Whether a write may have to wait for a reader.
bool needs_a_reader(int fd, const struct stat& status) noexcept {
    termios unused;
    return S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && ::tcgetattr(fd, &unused) == 0);
}

void open_again(outlet& out) {
    struct stat status = {};
    if (::fstat(out.fd, &status) == 0 && needs_a_reader(out.fd, status)) {
        char path[32];
        std::snprintf(path, sizeof path, "/proc/self/fd/%d", out.fd);
        out.own = ::open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
}

bool has_room(int fd) noexcept {
    pollfd state = {fd, POLLOUT, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & POLLOUT) != 0;
}

// Return: as write; -1 where there is no room now.
ssize_t write_without_waiting(const outlet& out, std::string_view text) noexcept {
    struct stat status = {};
    if (::fstat(out.fd, &status) != 0) {
        return -1;
    }
    if (S_ISSOCK(status.st_mode)) {
        return ::send(out.fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (out.own >= 0) {
        const ssize_t written = ::write(out.own, text.data(), text.size());
        if (written >= 0 || errno != EBADF) {
            return written;
        }
    }
    if (needs_a_reader(out.fd, status)) {
        if (!has_room(out.fd)) {
            return -1;
        }
        text = text.substr(0, PIPE_BUF);
    }
    return ::write(out.fd, text.data(), text.size());
}

// Return: false when some of it is left out.
bool is_printed(outlet& out, std::string_view text) noexcept {
    const ssize_t written = write_without_waiting(out, text);
    if (written > 0) {
        out.cut.store(written < static_cast<ssize_t>(text.size()));
    }
    return written == static_cast<ssize_t>(text.size());
}

bool is_told(outlet& out, uint32_t left_out) noexcept {
    static constexpr std::string_view text =
        " messages were left out, as there was no room for them\n";
    char line[text.size() + 16] = "\n";
    char* const number_end = std::to_chars(line + 1, line + 16, left_out).ptr;
    char* const end = std::copy(text.begin(), text.end(), number_end);
    const char* const begin = out.cut.load() ? line : line + 1;
    return is_printed(out, {begin, static_cast<std::size_t>(end - begin)});
}

void print(outlet& out, std::string_view text) noexcept {
    const int error = errno;
    uint32_t left_out = out.left_out.exchange(0);
    if (left_out > 0 && is_told(out, left_out)) {
        left_out = 0;
    }
    if (left_out > 0 || !is_printed(out, text)) {
        out.left_out.fetch_add(left_out + 1);
    }
    errno = error;
}

[[gnu::format(printf, 2, 0)]] void print(outlet& out, const char* format, va_list arguments) {
    const int error = errno;
    std::array<char, longest_message> text;
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    const auto size = std::min(static_cast<std::size_t>(std::max(length, 0)), text.size() - 1);
    if (length > static_cast<int>(size)) {
        text[size - 1] = '\n';  // a line that is cut is one line still
    }
    print(out, {text.data(), size});
    errno = error;
}

}  // namespace

void prepare_messages() {
    open_again(g_output);
    open_again(g_errors);
}

void print_error_text(std::string_view text) noexcept {
    print(g_errors, text);
}

void print_error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(g_errors, format, arguments);
    va_end(arguments);
}

void print_reason(const char* what) {
    print_error("%s: %s\n", what, std::strerror(errno));
}

void print_output(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(g_output, format, arguments);
    va_end(arguments);
}

}  // namespace veltrancord
