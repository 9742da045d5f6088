// Which handler serves which command name, and what follows every command.
#pragma once

#include <span>

#include "server/dispatch.h"
#include "server/serving.h"

namespace veltrancord {

// All commands, in their fixed order. The rows live as long as the process. Any thread.
[[nodiscard]] std::span<const command_row> command_table();

// What is done after every command: changed documents are saved, then queued programs are started,
// which find in the file what they are told of. Lives as long as the process. Any thread.
[[nodiscard]] std::span<follow_up* const> command_follow_ups();

}  // namespace veltrancord
