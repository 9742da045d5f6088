#include "service/supervisor.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "leaf/message.h"
#include "server/local_server.h"
#include "service/semaphore.h"
#include "service/signals.h"
#include "service/worker.h"

namespace veltrancord {

namespace {

constexpr const char* socket_path = "/tmp/Veltrancord.unix";
constexpr int failed_status = 1;

// Keeps a worker running. Any other child than the worker would be one that nobody here started,
// and ends the service as the worker's end does when it is not to be restarted.
int keep_worker_running(const service_options& options) {
    for (;;) {
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
    // A post that an earlier run left over must not release the starter before this one is ready.
    semaphore_create(readiness_semaphore, 0);
    // Before the first fork, so that from their first instruction all processes end in the same
    // way.
    install_termination_handling();
    const pid_t supervisor = ::fork();
    if (supervisor == 0) {
        return run_supervisor(options);
    }
    if (supervisor < 0) {
        print_reason("fork");  // nobody would ever release the starter
        return failed_status;
    }
    semaphore_pend(readiness_semaphore);
    // A boot script waits for this. What the C++ library does at the end of a program, which here
    // has nothing to write out, takes as long as reading three files.
    ::_exit(0);
}

}  // namespace veltrancord
