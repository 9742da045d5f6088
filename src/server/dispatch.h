// The command table, and from a complete request to its command's handler.
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

// The first row of that name, compared exactly, that has a handler.
//
// Return: the row's index, or -1.
[[nodiscard]] int32_t find_command(std::span<const command_row> table, std::string_view name);

enum class dispatch_outcome {
    no_name,  // the payload holds no ":"; nothing was done
    unknown,  // there is no such command
    handled,  // its handler has run
};

struct dispatched {
    dispatch_outcome outcome = dispatch_outcome::no_name;
    int32_t result = 0;  // the handler's; -4 of an unknown command
};

// Finds the command by the name before the payload's first ":" and runs its handler with what
// stands behind it. Behind the payload there must be a NUL; it is the handler's to change. A
// handler that ends with an exception, for want of memory, counts as one that returned -8 and no
// text.
[[nodiscard]] dispatched dispatch(std::span<const command_row> commands,
                                  connection_record& connection, std::span<char> payload);

}  // namespace veltrancord
