// --dry-run: what a command would change, shown as diff shows it, and nothing more.
#pragma once

#include <string>

#include "context.h"
#include "subcommand.h"

namespace veltrancord::tool {

// Gives the command the option, which sets tool.dry_run.
void add_dry_run(subcommand command, context& tool);

// Says that it was one. Return: exit_done.
int end_dry_run();

// What would change if these settings, or attributes, were written. Return: the exit status.
int show_writing(context& tool, const setting_list& settings);
int show_attributes(context& tool, const setting_list& attributes);

// What would go if `path` were removed. Return: the exit status; a path that names nothing is a
// failure.
int show_removal(context& tool, const std::string& path);

// How an exchange file is used.
enum class file_use {
    load,     // its documents replace those there are
    restore,  // the same, but what is set now wins
    merge     // each of its settings is set
};

// What would change if the exchange file were used, `text` being what it holds. Return: the exit
// status.
int show_file(context& tool, const std::string& file, const std::string& text, file_use use);

}  // namespace veltrancord::tool
