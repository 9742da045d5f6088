// What a request needs to be allowed: pairs of a class and a document, found in its argument by the
// routines that the handlers themselves use.
#pragma once

#include <functional>
#include <string_view>

#include "guard/classes.h"
#include "guard/policy.h"

namespace veltrancord {

// Called for each need. Return: false to stop.
using need_rule = std::function<bool(const access_need& need)>;

// Finds the needs of a command whose argument is not a file. A class that has documents comes with
// an empty one where the argument names none: the command will find nothing to do.
//
// Return: false when the rule has stopped it.
[[nodiscard]] bool each_need(const command_traits& traits, std::string_view argument,
                             const need_rule& rule);

// Whether the rule allows the class for every loaded document, at least one, or with an empty one.
[[nodiscard]] bool each_document(command_class which, const need_rule& rule);

// Called for each path that the argument names, values aside. Return: false to stop.
using path_rule = std::function<bool(std::string_view path, std::string_view value)>;

// For the trail: paths of settings, of lines with what they are to become, or of the file. Commands
// without a document name none: what they are given may be a secret.
void each_path(const command_traits& traits, std::string_view argument, const path_rule& rule);

// Whether the setting at the path is a secret: its last component says so.
[[nodiscard]] bool names_secret(std::string_view path);

}  // namespace veltrancord
