// The groups of commands, each in a file of its own. Each adds its subcommands to `app`; a chosen
// one sets tool.run. The parser and `tool` outlive the parse and the run.
#pragma once

#include "context.h"
#include "subcommand.h"

namespace veltrancord::tool {

void add_read_commands(subcommand app, context& tool);       // get, ls, tree
void add_write_commands(subcommand app, context& tool);      // set, unset
void add_reset_command(subcommand app, context& tool);       // reset
void add_describe_command(subcommand app, context& tool);    // describe
void add_attribute_commands(subcommand app, context& tool);  // attr
void add_document_commands(subcommand app, context& tool);   // dump, load, merge, restore, sync ...
void add_log_commands(subcommand app, context& tool);        // log
void add_permit_commands(subcommand app, context& tool);     // can, permits, group, filter
void add_access_commands(subcommand app, context& tool);     // access
void add_session_commands(subcommand app, context& tool);    // session, captcha
void add_exchange_commands(subcommand app, context& tool);   // raw, ping, wait
void add_difference_commands(subcommand app, context& tool);  // snapshot, diff
void add_apply_commands(subcommand app, context& tool);       // apply, confirm
void add_trial_commands(subcommand app, context& tool);       // trial
void add_edit_command(subcommand app, context& tool);         // edit
void add_history_commands(subcommand app, context& tool);     // history, undo
void add_trail_command(subcommand app, context& tool);        // trail
void add_watch_command(subcommand app, context& tool);        // watch
void add_check_command(subcommand app, context& tool);        // fsck
void add_doctor_command(subcommand app, context& tool);       // doctor
void add_schema_command(subcommand app, context& tool);       // schema
void add_stats_command(subcommand app, context& tool);        // stats

}  // namespace veltrancord::tool
