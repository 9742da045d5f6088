#include "service/worker.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "access/session_lists.h"
#include "eventlog/event_log.h"
#include "server/listener.h"
#include "service/semaphore.h"
#include "service/shared_memory.h"
#include "service/signals.h"
#include "update/backup.h"

namespace veltrancord {

namespace {

constexpr int thread_failed_status = 1;
constexpr unsigned pass_seconds = 10;

// Handlers walk documents recursively, and documents may nest 512 elements deep. The widest frame
// on such a walk holds a key and a line of a few hundred bytes; a sanitizer triples it. Four
// mebibytes hold that several times over and cost only the pages that are touched.
constexpr std::size_t server_stack_size = std::size_t{4} * 1024 * 1024;

// Starts a thread that runs until the process ends and takes no signals. `stack_size` 0: default.
bool start_thread(void* (*routine)(void*), void* argument, std::size_t stack_size) {
    const all_signals_blocked blocked;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    if (stack_size > 0) {
        ::pthread_attr_setstacksize(&attributes, stack_size);
    }
    pthread_t thread = {};
    const int error = ::pthread_create(&thread, &attributes, routine, argument);
    ::pthread_attr_destroy(&attributes);
    if (error != 0) {
        std::fprintf(stderr, "pthread_create: %s\n", std::strerror(error));
        return false;
    }
    ::pthread_detach(thread);
    return true;
}

// What lives as long as the worker and is shared between its threads.
struct worker_state {
    std::atomic<uint32_t> change_counter{0};
    session_lists sessions;
    int32_t backup_interval = 0;  // seconds
    server_start server;
};

void* start_backups(void* argument) {
    worker_state& state = *static_cast<worker_state*>(argument);
    backup_thread(state.change_counter, state.backup_interval);
}

[[noreturn]] void run_main_loop() {
    bool ready_posted = false;
    for (;;) {
        if (g_childExited.load()) {
            reap_children();
        }
        g_shmBodyOffset = 0;
        if (!ready_posted) {
            ready_posted = true;
            semaphore_post(readiness_semaphore);
        }
        ::sleep(pass_seconds);  // shorter when a child ends
    }
}

}  // namespace

int run_worker(const service_options& options) {
    install_worker_signals();
    // Without a log the service serves everything else.
    init_event_log(options.event_log_path);

    worker_state state;
    state.server.fd = g_listeningFd.load();
    state.server.change_counter = &state.change_counter;
    state.server.sessions = &state.sessions;
    state.backup_interval = options.backup_interval;
    if (!start_thread(start_backups, &state, 0) ||
        !start_thread(server_thread, &state.server, server_stack_size)) {
        return thread_failed_status;
    }
    init_session_lists(state.sessions);
    state.server.lists_ready.count_down();
    run_main_loop();
}

}  // namespace veltrancord
