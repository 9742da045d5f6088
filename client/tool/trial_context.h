// Trials as the tool begins and ends them.
#pragma once

#include <string>

#include "context.h"
#include "trial/trial.h"

namespace veltrancord::tool {

// Where the trial lies, and this program as its guard.
trial::setup trial_setup(const context& tool);

// Says what went wrong with a trial. Return: the exit status.
int explain_trouble(context& tool, const std::string& command, const trial::verdict& verdict);

// Says how a trial has ended. Return: the exit status, which is that of a change: exit_done when it
// was kept, else exit_cancelled; exit_failed when not all could be written back.
int tell_ending(context& tool, const std::string& command, trial::ending how);

// "user joe", or his number where he has no name.
std::string user_name(uid_t user);

inline constexpr std::string_view no_trial = "no change waits for a confirmation";

}  // namespace veltrancord::tool
