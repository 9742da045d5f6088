// The command table: which handler serves which command name.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "handler/handler.h"

namespace veltrancord {

struct command_row {
    std::string_view name;
    command_handler* handler = nullptr;  // null: the command is answered as an unknown one
    std::string_view description;        // for readers; the server does not use it
};

// All commands, in their fixed order. The rows live as long as the process. Any thread.
[[nodiscard]] std::span<const command_row> command_table();

// The first row of that name, compared exactly, that has a handler.
//
// Return: the row's index, or -1.
[[nodiscard]] int32_t find_command(std::span<const command_row> table, std::string_view name);

}  // namespace veltrancord
