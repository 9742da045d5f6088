#include "pager.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace veltrancord::tool {

bool write_whole(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

namespace {

bool fits_terminal(std::string_view text) {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) {
        return true;
    }
    return std::count(text.begin(), text.end(), '\n') < size.ws_row;
}

const char* pager_command() {
    for (const char* name : {"VELTRANCORD_PAGER", "PAGER"}) {
        const char* command = std::getenv(name);
        if (command != nullptr) {
            return command;
        }
    }
    return "less -FRX";
}

}  // namespace

bool show_paged(std::string_view text) {
    const char* command = pager_command();
    if (isatty(STDOUT_FILENO) != 1 || fits_terminal(text) || *command == '\0') {
        return write_whole(STDOUT_FILENO, text);
    }
    FILE* pager = popen(command, "we");  // NOLINT(cert-env33-c): the user's own pager
    if (pager == nullptr) {
        return write_whole(STDOUT_FILENO, text);
    }
    // Whoever leaves the pager early has seen what he wanted.
    std::signal(SIGPIPE, SIG_IGN);
    (void)write_whole(fileno(pager), text);
    const int status = pclose(pager);
    const bool was_found = WIFEXITED(status) && WEXITSTATUS(status) != 127;
    return was_found || WIFSIGNALED(status) || write_whole(STDOUT_FILENO, text);
}

}  // namespace veltrancord::tool
