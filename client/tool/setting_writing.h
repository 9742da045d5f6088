// Writing settings as "set" and "reset" do: looked over first, with one request, into the history.
#pragma once

#include <string>

#include "context.h"
#include "subcommand.h"

namespace veltrancord::tool {

struct writing_options {
    bool memory_only = false;
    bool create = false;  // also settings that are not there yet
    bool force = false;   // also what the description does not allow
};

// Gives the command --create, --force, --memory and --dry-run.
void add_writing_options(subcommand command, context& tool, writing_options& options);

// Writes the settings, of which there is at least one, unless one of them is not allowed or not
// there; or only shows what would change. `file` is what they were read from, or empty. Return: the
// exit status.
int write_checked(context& tool, const setting_list& settings, const writing_options& options,
                  const std::string& file = {});

}  // namespace veltrancord::tool
