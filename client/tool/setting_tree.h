// Settings as a tree of path components.
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

class setting_tree {
  public:
    struct node {
        std::string name;
        bool has_value = false;
        std::string value;
        std::vector<node> children;  // in the order of the settings
        bool is_there = true;        // false: only the description names it
        std::string note;            // what stands beside it in the drawing, or empty
    };

    setting_tree() = default;

    // The tree of what lies below `path` in `settings`.
    setting_tree(const std::string& path, const setting_list& settings);

    [[nodiscard]] const node& root() const { return root_; }
    [[nodiscard]] node& root() { return root_; }

    // Drawn with lines, secrets masked unless the tool reveals them.
    [[nodiscard]] std::string as_text(const context& tool) const;

    // Objects in objects; an element that has both a value and children keeps its value under "".
    [[nodiscard]] json as_json(bool reveal) const;

  private:
    node root_;
};

}  // namespace veltrancord::tool
