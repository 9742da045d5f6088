// The worker: the process that holds the configuration and serves it.
#pragma once

#include "service/options.h"

namespace veltrancord {

// Loads everything, starts the threads, reports readiness and then looks after child processes for
// as long as the process lives.
//
// Return: 0 when the configuration could not be loaded, 1 when a thread could not be started; else
// never.
[[nodiscard]] int run_worker(const service_options& options);

}  // namespace veltrancord
