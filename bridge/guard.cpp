#include "guard.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"

namespace veltrancord::bridge {
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

// The guard outlives whoever has begun the trial, and is told to end by SIGTERM alone.
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

trial::setup guarded_setup(const std::string& socket, const std::string& documents) {
    trial::setup where;
    where.documents = documents;
    where.guard_program = "/proc/self/exe";
    where.guard = {"veltrancord-bridge", "--guard", socket, documents};
    return where;
}

int run_guard(const std::string& socket, const std::string& documents, const std::string& folder) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return EXIT_FAILURE;
    }
    const owned_fd ready(ends[0]);
    g_ready = ends[1];
    const pid_t child = ::fork();
    if (child != 0) {
        (void)::close(g_ready);
        char byte = '\0';
        return child > 0 && read_whole(ready.get(), &byte, 1) == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    if (!part_from_parent()) {
        return EXIT_FAILURE;
    }
    veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    client.socket_path = socket.c_str();
    trial::setup where;
    where.documents = documents;
    where.folder = folder;
    return trial::guard(client, where, say_ready, g_stop).good() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace veltrancord::bridge
