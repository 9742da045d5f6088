// A tree of settings with what the description says of them.
#pragma once

#include "context.h"
#include "setting_tree.h"

namespace veltrancord::tool {

// Puts a note beside each node: its label, its unit, and its default where it holds something else.
// Adds what the description names and is not there, a group that is missing without what is in it.
void describe_tree(context& tool, setting_tree& tree);

// The tree so described: of each setting an object with "value", null where nothing is set,
// "label", "allowed", "default" and "unit"; of a group one of the names below it, its own label
// under "".
json described_json(context& tool, const setting_tree& tree);

}  // namespace veltrancord::tool
