#include "question.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "exit_status.h"
#include "file_name.h"
#include "leaf/owned_fd.h"
#include "terminal_text.h"

namespace veltrancord::tool {

bool asked_yes(const std::string& question) {
    if (isatty(STDIN_FILENO) != 1) {
        return false;
    }
    std::fprintf(stderr, "%s [y/N] ", terminal_text(question, locale_is_utf8()).c_str());
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
        return tool.fail_with(exit_usage, what,
                              "needs --yes where there is no terminal to ask at; --backup FILE "
                              "saves what is there before");
    }
    const std::string hint = tool.backup_file.empty()
                                 ? "? (--backup FILE would save what is there before)"
                                 : "? (what is there is saved in " + tool.backup_file + " before)";
    if (asked_yes(what + hint)) {
        return exit_done;
    }
    context::note("nothing was done");
    return exit_cancelled;
}

int back_up_first(context& tool) {
    if (tool.backup_file.empty()) {
        return exit_done;
    }
    return download_to(tool, tool.backup_file);
}

int download_to(context& tool, const std::string& file) {
    const std::string name = absolute_name(file);
    target_file target(name);
    if (!target.is_there()) {
        return tool.fail_file(file);
    }
    int32_t result = veltrancord_download(&tool.client(), name.c_str());
    if (result == VELTRANCORD_FAILED && target.is_new()) {
        // A service that is not root's cannot fill a file of ours: it makes one of its own.
        target.remove();
        result = veltrancord_download(&tool.client(), name.c_str());
    }
    if (result < 0) {
        return tool.fail(file, result);
    }
    target.keep();
    return exit_done;
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

volatile std::sig_atomic_t g_signal = 0;

void note_signal(int signal) {
    g_signal = signal;
}

// While it lives, signals that end the program are noted only, and end the waiting for input: the
// terminal must show again what is typed before the program ends. They are let in while it waits
// and at no other moment, lest one come just before and the waiting go on. One that whoever started
// the program has it ignore stays ignored.
class held_signals {
  public:
    held_signals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : numbers) {
            sigaddset(&held, number);
        }
        (void)sigprocmask(SIG_BLOCK, &held, &mask_before_);
        struct sigaction action {};
        action.sa_handler = note_signal;
        for (std::size_t index = 0; index < numbers.size(); ++index) {
            (void)sigaction(numbers[index], nullptr, &before_[index]);
            if (before_[index].sa_handler != SIG_IGN) {
                (void)sigaction(numbers[index], &action, nullptr);
            }
        }
    }
    ~held_signals() {
        for (std::size_t index = 0; index < numbers.size(); ++index) {
            (void)sigaction(numbers[index], &before_[index], nullptr);
        }
        if (g_signal != 0) {
            (void)raise(g_signal);
        }
        (void)sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    }

    // Return: whether there is input, or its end; false when a signal came first.
    [[nodiscard]] bool wait_for_input() const {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        int ready = -1;
        do {
            ready = ppoll(&input, 1, nullptr, &mask_before_);
        } while (ready < 0 && errno == EINTR && g_signal == 0);
        return ready > 0;
    }
    held_signals(const held_signals&) = delete;
    held_signals& operator=(const held_signals&) = delete;
    held_signals(held_signals&&) = delete;
    held_signals& operator=(held_signals&&) = delete;

  private:
    static constexpr std::array numbers = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    std::array<struct sigaction, numbers.size()> before_{};
    sigset_t mask_before_{};
};

bool read_hidden_line(const std::string& prompt, std::string& line) {
    termios shown{};
    if (tcgetattr(STDIN_FILENO, &shown) != 0) {
        return false;
    }
    const held_signals held;
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    std::fprintf(stderr, "%s: ", prompt.c_str());
    std::fflush(stderr);
    char letter = '\0';
    bool more = true;
    while (more && letter != '\n') {
        more = held.wait_for_input() && read(STDIN_FILENO, &letter, 1) == 1;
        if (more && letter != '\n') {
            line += letter;
        }
    }
    (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    std::fprintf(stderr, "\n");
    errno = ECANCELED;
    return more;
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
