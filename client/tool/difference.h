// Differences between settings: read from files, shown, turned into what has to be written.
#pragma once

#include <map>
#include <string>

#include "context.h"

namespace veltrancord::tool {

using setting_map = std::map<std::string, std::string>;
using line_map = std::map<std::string, std::size_t>;  // lines of a file by path, from 1

// Reads the settings of a file: "path=value" lines, a snapshot, or an exchange file (XML), which
// the service's own code parses. "-": standard input. With `line_of` also where each stands.
// Return: exit_done, or a status after a message.
int read_settings_file(context& tool, const std::string& file, setting_map& settings,
                       line_map* line_of = nullptr);

// Reads the settings of the service at `path` and below; "" and "*": all. A place that holds none
// is a failure. Return: as above.
int read_running(context& tool, const std::string& path, setting_map& settings);

// One line for each side of each change, secrets masked.
std::string difference_text(const context& tool, const std::vector<setting_change>& changes);
json difference_json(const context& tool, const std::vector<setting_change>& changes);

// Those that were not there before, or had no text.
setting_list new_settings(const std::vector<setting_change>& changes);

// Those that have to be written, with their lines.
setting_list written_settings(const std::vector<setting_change>& changes, const line_map& lines);

// Prints them in the form asked for.
void print_difference(context& tool, const std::vector<setting_change>& changes);

// The text of a snapshot file: the same lines that "set -" takes.
std::string snapshot_text(const setting_map& settings);

// Makes a file that only its owner may read, in one step. Return: false with errno set.
bool write_private_file(const std::string& file, const std::string& text);

}  // namespace veltrancord::tool
