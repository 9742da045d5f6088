#include "trial/guard_process.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>

#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"

namespace veltrancord::trial {
namespace {

volatile std::sig_atomic_t g_stop = 0;
int g_ready = -1;  // where the guard says that it may be relied on

void note_stop(int /*signal*/) {
    g_stop = 1;
}

void say_ready() {
    const owned_fd pipe(g_ready);
    (void)write_whole(pipe.get(), "!");
}

// The guard outlives the terminal and whoever has begun the trial or reads that one's output.
bool part_from_parent() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE}) {
        (void)sigaction(number, &action, nullptr);
    }
    action.sa_handler = note_stop;
    (void)sigaction(SIGTERM, &action, nullptr);
    const owned_fd nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    return ::setsid() >= 0 && nothing && ::dup2(nothing.get(), STDIN_FILENO) >= 0 &&
           ::dup2(nothing.get(), STDOUT_FILENO) >= 0 && ::dup2(nothing.get(), STDERR_FILENO) >= 0 &&
           ::chdir("/") == 0;
}

}  // namespace

bool leave_guard(veltrancord_client& client, const setup& where) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const owned_fd ready(ends[0]);
    g_ready = ends[1];
    const pid_t child = ::fork();
    if (child != 0) {
        (void)::close(g_ready);
        char byte = '\0';
        return child > 0 && read_whole(ready.get(), &byte, 1) == 1;
    }
    return part_from_parent() && guard(client, where, say_ready, g_stop).good();
}

}  // namespace veltrancord::trial
