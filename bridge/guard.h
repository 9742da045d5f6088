// The guard of a trial: this program once more, in a process of its own that outlives the bridge.
#pragma once

#include <string>

#include "trial/trial.h"

namespace veltrancord::bridge {

// How trials are begun, so that run_guard() is what guards them. `socket`: the service's; empty: as
// the C library finds it.
[[nodiscard]] trial::setup guarded_setup(const std::string& socket, const std::string& documents);

// The life of a guard, for "--guard SOCKET DOCUMENTS FOLDER". Return: the exit status: 0 when the
// guard is there, a process that was left behind, or has done its work.
[[nodiscard]] int run_guard(const std::string& socket, const std::string& documents,
                            const std::string& folder);

}  // namespace veltrancord::bridge
