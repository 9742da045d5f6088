// The three processes: the starter, the supervisor and the worker.
#pragma once

#include "service/options.h"

namespace veltrancord {

// Runs the service as this process: becomes the starter, which waits until the worker is ready,
// and forks the supervisor.
//
// Return: the exit status of whichever of the three processes returns.
[[nodiscard]] int run_service(const service_options& options);

}  // namespace veltrancord
