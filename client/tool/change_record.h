// Puts what a command changes into the history (history.h).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "context.h"
#include "history.h"
#include "place_state.h"

namespace veltrancord::tool {

// What a command is about to change.
struct change_scope {
    std::vector<std::string> settings;    // these settings,
    std::vector<std::string> attributes;  // these attributes,
    std::vector<std::string> places;      // all at these places and below; "*": everything
    bool memory = false;                  // in memory only
    int64_t undoes = 0;                   // the number of the change that it undoes
};

// Looks at the scope, does the change, looks again, and appends what has become different to the
// history. A change that failed midway is recorded as far as it went. That it cannot be recorded
// keeps nobody from changing: a note says it. With --root nothing is recorded.
//
// Return: what `change` returned.
int recorded(context& tool, const change_scope& scope, const std::function<int()>& change);

// The paths of these settings, for a scope.
std::vector<std::string> paths_of(const setting_list& settings);

// What differs between two states. Of a path in `made` the element there is what the change has
// made. Secrets are masked.
std::vector<recorded_difference> differences(const place_state& before, const place_state& after,
                                             const std::map<std::string, std::string>& made = {});

// Appends what differs, if anything does, in the user's name. Return: false with errno set.
bool record(history_entry entry, context& tool);

// The differences as "-path=value" and "+path=value" lines, an attribute's with "attr " before it.
std::string text_of(const context& tool, const std::vector<recorded_difference>& differences);

}  // namespace veltrancord::tool
