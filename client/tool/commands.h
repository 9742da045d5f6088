// The groups of commands, each in a file of its own. Each adds its subcommands to `app`; a chosen
// one sets tool.run. Both outlive the parse and the run.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "context.h"

namespace veltrancord::tool {

void add_read_commands(CLI::App& app, context& tool);        // get, ls, tree
void add_write_commands(CLI::App& app, context& tool);       // set, unset
void add_attribute_commands(CLI::App& app, context& tool);   // attr
void add_document_commands(CLI::App& app, context& tool);    // dump, load, merge, restore, sync ...
void add_log_commands(CLI::App& app, context& tool);         // log
void add_permit_commands(CLI::App& app, context& tool);      // can, permits, group, filter
void add_session_commands(CLI::App& app, context& tool);     // session, captcha
void add_exchange_commands(CLI::App& app, context& tool);    // raw, ping, wait
void add_difference_commands(CLI::App& app, context& tool);  // snapshot, diff
void add_apply_commands(CLI::App& app, context& tool);       // apply, confirm
void add_edit_command(CLI::App& app, context& tool);         // edit
void add_watch_command(CLI::App& app, context& tool);        // watch
void add_check_command(CLI::App& app, context& tool);        // fsck
void add_doctor_command(CLI::App& app, context& tool);       // doctor

}  // namespace veltrancord::tool
