// The three processes. The starter waits until requests are served; the supervisor, which it forks,
// holds the listening socket and keeps a worker running; the worker holds the configuration.
#pragma once

#include "service/options.h"

namespace veltrancord {

// Runs the service as this process: keeps other instances out, becomes the starter, which waits
// until the worker is ready and then ends at once with status 0, and forks the supervisor.
//
// Return: the exit status of whichever of the three processes returns; the starter returns only
// when another instance runs already or when it cannot fork.
[[nodiscard]] int run_service(const service_options& options);

// The worker: loads everything, starts the threads, reports readiness and then looks after child
// processes for as long as the process lives.
//
// Return: 0 when the configuration could not be loaded, 1 when a thread could not be started; else
// never.
[[nodiscard]] int run_worker(const service_options& options);

// Makes what the service's starter has inherited the same whoever starts it. To be called before
// anything is opened or printed:
// - descriptors 0, 1 and 2 are opened on /dev/null where they are closed, so that no file or socket
//   of the service gets a number that messages are printed to; all others are closed;
// - no signal is blocked, and the end of a child can be waited for;
// - no process of the service dumps core: secrets are in its memory.
// Umask, directory, environment, priority and the other limits are the starter's to choose.
void settle_inheritance();

// Sets g_storeHooks: after each load the semaphores 520, 521, 522, 523 and 530 are set, in this
// order, to 0, 0, 1, 0 and 0; with the set the shared-memory segments are removed. To be called
// before anything is loaded.
void install_store_hooks();

}  // namespace veltrancord
