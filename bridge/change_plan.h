// Whether a wanted change may be made, and what it would change. Nothing is written here.
#pragma once

#include <veltrancord/client.h>

#include <string>
#include <vector>

#include "change_journal.h"
#include "configuration.h"
#include "operator_message.h"
#include "trial/former_settings.h"

namespace veltrancord::bridge {

struct change_plan {
    // Not `none`: it must not be made, for this reason.
    change_state obstacle = change_state::none;
    std::string reason;
    std::vector<trial::change> changes;  // what differs; a removed setting becomes empty
    std::vector<std::string> removals;   // those of them that go once the change is kept
};

// Looks at the paths, at the settings' descriptions where there are some, at the documents' hashes
// and at the settings that there are.
//
// Return: VELTRANCORD_OK with the plan, or what the exchange gave.
[[nodiscard]] int32_t make_plan(veltrancord_client& client, const configuration& settings,
                                const operator_message& message, change_plan& plan);

// "-path=before" and "+path=after" lines.
[[nodiscard]] std::string difference_text(const std::vector<trial::change>& changes);

}  // namespace veltrancord::bridge
