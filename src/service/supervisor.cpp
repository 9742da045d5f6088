#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

#include "leaf/clock.h"
#include "leaf/message.h"
#include "server/local_server.h"
#include "service/instance_lock.h"
#include "service/processes.h"
#include "service/semaphore.h"
#include "service/signals.h"

namespace veltrancord {

namespace {

constexpr const char* socket_path = "/tmp/Veltrancord.unix";
constexpr int failed_status = 1;

// A worker that ends sooner cannot do its work, and the next one will hardly do better: without a
// pause hundreds a second would be tried.
constexpr int64_t shortest_life = 1000;  // milliseconds
constexpr unsigned restart_pause = 1;    // seconds

// Keeps a worker running. Any other child than the worker would be one that nobody here started,
// and ends the service as the worker's end does when it is not to be restarted.
int keep_worker_running(const service_options& options) {
    for (;;) {
        const int64_t begin = monotonic_milliseconds();
        const pid_t worker = ::fork();
        if (worker < 0) {
            return failed_status;
        }
        if (worker == 0) {
            return run_worker(options);
        }
        if (::wait(nullptr) != worker || !options.restart) {
            print_error("Veltracord Exiting....\n");
            return failed_status;
        }
        print_error("restart Veltracord....\n");
        if (monotonic_milliseconds() - begin < shortest_life) {
            ::sleep(restart_pause);
        }
    }
}

int run_supervisor(const service_options& options) {
    const int listening_fd = create_local_server(socket_path);
    if (listening_fd < 0) {
        print_error("create local server socket error!!\n");
        return 0;
    }
    g_listeningFd.store(listening_fd);
    g_listeningOwner.store(options.restart ? ::getpid() : 0);
    return keep_worker_running(options);
}

}  // namespace

int run_service(const service_options& options) {
    // Before the first fork, so that from their first instruction all processes end in the same
    // way.
    install_termination_handling();
    instance_lock lock;
    if (!keep_others_out(options, socket_path, lock)) {
        return failed_status;
    }
    // A post that an earlier run left over must not release the starter before this one is ready.
    semaphore_create(readiness_semaphore, 0);
    const pid_t supervisor = ::fork();
    if (supervisor == 0) {
        return run_supervisor(options);
    }
    if (supervisor < 0) {
        print_reason("fork");  // nobody would ever release the starter
        return failed_status;
    }
    // A starter that waits in vain must not keep the next one out.
    lock = {};
    semaphore_pend(readiness_semaphore);
    // A boot script waits for this. What the C++ library does at the end of a program, which here
    // has nothing to write out, takes as long as reading three files.
    ::_exit(0);
}

}  // namespace veltrancord
