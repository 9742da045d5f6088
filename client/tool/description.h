// What the product's description of its settings says to the commands: what may be written, and
// what holds where nothing is set. Without a description of a document everything may be.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "context.h"
#include "difference.h"
#include "dry_run.h"
#include "schema/description_set.h"
#include "subcommand.h"

namespace veltrancord::tool {

// Gives the command --force.
void add_force(subcommand command, bool& force);

// Looks whether the settings may be written, and says of each that may not what is wrong; `file` is
// what they were read from, or empty. With `force` these are notes, and tool.forced is set.
//
// Return: exit_done; or exit_not_allowed, and nothing must be written.
int check_allowed(context& tool, const setting_list& settings, bool force,
                  const std::string& file = {});

// The same of the text of an exchange file. One that does not parse is left to the service.
int check_file_allowed(context& tool, const std::string& file, const std::string& text,
                       file_use use, bool force);

// Whether there is a description of any document.
bool is_anything_described(context& tool);

// Says of a description that cannot be used why, once; what it describes goes unchecked.
void tell_mistakes(context& tool);

// The language of the user's messages: of LC_ALL, LC_MESSAGES or LANG the first that is set.
std::string user_language();

// The default of a setting, or nothing where there is none.
std::optional<std::string> default_of(context& tool, std::string_view path);

// The defaults of all settings at `place` and below ("" and "*": all) that are in `running` or
// could be: a group that may be left out, and is not there, has none. Secrets have none.
setting_map defaults_at(context& tool, const std::string& place, const setting_map& running);

// The element that describes the place of a path, "PATH.*" being PATH; null where nothing does.
const schema::element_description* described_at(context& tool, const std::string& place);

// Its label in the user's language, or empty.
std::string label_of(const schema::element_description& element);

}  // namespace veltrancord::tool
