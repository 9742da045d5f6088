// What the help of each command says beside its description and its options: one table for all.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace veltrancord::tool {

// Of a command "log add" the name is both words.
struct command_help {
    const char* name;
    const char* group;     // the heading under which the list of commands has it; null: inside
                           // another command
    const char* examples;  // a command line on each line
    uint32_t statuses;     // bit N: it may end with exit status N; see exit_status.h
    bool offline = false;  // it works with --root, too, where no service runs
};

// All rows.
std::span<const command_help> command_helps();

// The row of that name, or null.
const command_help* find_command_help(std::string_view name);

// What stands below the options: examples and exit statuses, and what they mean.
std::string help_footer(const command_help& help);

}  // namespace veltrancord::tool
