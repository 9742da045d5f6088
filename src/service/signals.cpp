#include "service/signals.h"

#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <initializer_list>

#include "leaf/message.h"
#include "leaf/termination.h"
#include "server/local_server.h"

namespace veltrancord {

namespace {

constexpr int terminated_status = 1;

// The line is put together beforehand and written in one call, since a handler may use neither
// stdio nor the heap.
void print_caught_signal(int number) {
    static constexpr char text[] = "XmlSigTermnate catched signal ";
    char line[sizeof text + 16];
    std::memcpy(line, text, sizeof text - 1);
    char* end = std::to_chars(line + sizeof text - 1, line + sizeof line - 1, number).ptr;
    *end++ = '\n';
    print_error_text({line, static_cast<std::size_t>(end - line)});
}

void XmlSigTermnate(int number) {
    print_caught_signal(number);
    g_terminating.store(true);
    const pid_t owner = g_listeningOwner.load();
    process_release(g_listeningFd.exchange(-1), owner == 0 || owner == ::getpid()
                                                    ? socket_release::for_all
                                                    : socket_release::this_copy);
    ::_exit(terminated_status);
}

void on_child_exit(int /*number*/) {
    g_childExited.store(true);
}

void handle(int number, void (*handler)(int), const sigset_t& blocked, int flags) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = blocked;
    action.sa_flags = flags;
    ::sigaction(number, &action, nullptr);
}

}  // namespace

void install_termination_handling() {
    sigset_t none;
    ::sigemptyset(&none);
    handle(SIGPIPE, SIG_IGN, none, 0);
    // A file over the process's limit is a write that fails, not the end of the service.
    handle(SIGXFSZ, SIG_IGN, none, 0);
    // Both at a time would print and close twice.
    sigset_t every;
    ::sigfillset(&every);
    handle(SIGTERM, XmlSigTermnate, every, 0);
    handle(SIGHUP, XmlSigTermnate, every, 0);
}

void install_worker_signals() {
    sigset_t blocked;
    ::sigemptyset(&blocked);
    for (const int number : {SIGCHLD, SIGUSR1, SIGUSR2, SIGPIPE, SIGTERM, SIGINT}) {
        ::sigaddset(&blocked, number);
    }
    sigset_t none;
    ::sigemptyset(&none);
    handle(SIGPIPE, SIG_IGN, none, 0);
    // The main loop's sleep ends at a signal all the same; other calls are better not disturbed.
    handle(SIGCHLD, on_child_exit, blocked, SA_RESTART);
}

all_signals_blocked::all_signals_blocked() {
    sigset_t every;
    ::sigfillset(&every);
    ::pthread_sigmask(SIG_SETMASK, &every, &before_);
}

all_signals_blocked::~all_signals_blocked() {
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

// The flag is cleared first: a child that ends while the others are reaped sets it again.
void reap_children() {
    g_childExited.store(false);
    int status = 0;
    for (pid_t child = 0; (child = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        print_error("reaping child %d: status %d\n", child, status);
    }
}

}  // namespace veltrancord
