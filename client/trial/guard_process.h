// The process that guards a trial: what the program named in setup::guard runs.
#pragma once

#include "trial/trial.h"

namespace veltrancord::trial {

// Leaves a process behind that guards the trial in where.folder as trial::guard() does: in a
// session of its own, without the terminal, told to end by SIGTERM alone. `client` is borrowed and
// used in that process. To be called once, by a program of one thread.
//
// Return: in the calling process, as soon as the guard may be relied on, true; false when it cannot
// be. In the guard, when the trial is over, whether all of that went well. Both have nothing left
// to do but to end.
[[nodiscard]] bool leave_guard(veltrancord_client& client, const setup& where);

}  // namespace veltrancord::trial
