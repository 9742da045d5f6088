// The three processes: the starter, the supervisor and the worker.
#pragma once

#include "service/options.h"

namespace veltrancord {

// Runs the service as this process: becomes the starter, which waits until the worker is ready and
// then ends at once with status 0, and forks the supervisor.
//
// Return: the exit status of whichever of the three processes returns; the starter returns only
// when it cannot fork.
[[nodiscard]] int run_service(const service_options& options);

}  // namespace veltrancord
