#include "question.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "exit_status.h"
#include "file_name.h"
#include "leaf/owned_fd.h"

namespace veltrancord::tool {

bool asked_yes(const std::string& question) {
    if (isatty(STDIN_FILENO) != 1) {
        return false;
    }
    std::fprintf(stderr, "%s [y/N] ", question.c_str());
    std::fflush(stderr);
    std::string answer;
    for (int letter = std::getchar(); letter != EOF && letter != '\n'; letter = std::getchar()) {
        answer += static_cast<char>(letter);
    }
    return answer == "y" || answer == "Y" || answer == "yes";
}

int may_destroy(context& tool, const std::string& what) {
    if (tool.assume_yes) {
        return exit_done;
    }
    if (isatty(STDIN_FILENO) != 1) {
        return tool.fail_with(exit_usage, what, "needs --yes where there is no terminal to ask at");
    }
    if (asked_yes(what + "?")) {
        return exit_done;
    }
    context::note("nothing was done");
    return exit_cancelled;
}

int back_up_first(context& tool) {
    if (tool.backup_file.empty()) {
        return exit_done;
    }
    const std::string file = absolute_name(tool.backup_file);
    const int32_t result = veltrancord_download(&tool.client(), file.c_str());
    return result < 0 ? tool.fail(file, result) : exit_done;
}

namespace {

bool read_descriptor(int fd, std::string& text) {
    char block[65536];
    for (;;) {
        const ssize_t count = read(fd, block, sizeof block);
        if (count == 0) {
            return true;
        }
        if (count > 0) {
            text.append(block, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
}

bool read_hidden_line(const std::string& prompt, std::string& line) {
    termios shown{};
    if (tcgetattr(STDIN_FILENO, &shown) != 0) {
        return false;
    }
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    std::fprintf(stderr, "%s: ", prompt.c_str());
    std::fflush(stderr);
    (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    int letter = std::getchar();
    for (; letter != EOF && letter != '\n'; letter = std::getchar()) {
        line += static_cast<char>(letter);
    }
    (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    std::fprintf(stderr, "\n");
    errno = ECANCELED;
    return letter != EOF;
}

}  // namespace

bool read_input(const std::string& name, std::string& text) {
    if (name == "-") {
        return read_descriptor(STDIN_FILENO, text);
    }
    const owned_fd file(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    return file && read_descriptor(file.get(), text);
}

bool read_secret(const std::string& prompt, const std::string& file, std::string& secret) {
    if (file == "-" && isatty(STDIN_FILENO) == 1) {
        return read_hidden_line(prompt, secret);
    }
    if (!read_input(file, secret)) {
        return false;
    }
    if (!secret.empty() && secret.back() == '\n') {
        secret.pop_back();
    }
    return true;
}

}  // namespace veltrancord::tool
