#include "setting_tree.h"

#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "terminal_text.h"

namespace veltrancord::tool {

namespace {

using node = setting_tree::node;

// Children of one name lie together in what the service answers: looking back finds them soon.
node& child_of(node& parent, std::string_view name) {
    const auto found = std::find_if(parent.children.rbegin(), parent.children.rend(),
                                    [&](const node& child) { return child.name == name; });
    if (found != parent.children.rend()) {
        return *found;
    }
    parent.children.emplace_back();
    parent.children.back().name = name;
    return parent.children.back();
}

struct branches {
    const char* inner;  // to a child with others behind it
    const char* last;
    const char* beside;  // beside what lies below a child with others behind it
};

std::string beside(const context& tool, const node& one) {
    return one.note.empty() ? std::string() : "  " + tool.coloured("2", one.note);
}

// A terminal without UTF-8 gets what it can show.
const branches& branches_of_terminal() {
    static constexpr branches drawn{"├── ", "└── ", "│   "};
    static constexpr branches plain{"|-- ", "`-- ", "|   "};
    return isatty(STDOUT_FILENO) == 1 && !locale_is_utf8() ? plain : drawn;
}

void draw(const node& parent, const std::string& indent, const context& tool, std::string& out) {
    const branches& lines = branches_of_terminal();
    for (std::size_t index = 0; index < parent.children.size(); ++index) {
        const node& child = parent.children[index];
        const bool last = index + 1 == parent.children.size();
        out += indent;
        out += last ? lines.last : lines.inner;
        out += child.children.empty() ? child.name : tool.coloured("1;34", child.name);
        if (child.has_value) {
            out += " = ";
            out += tool.coloured("32", shown_value({child.name, child.value}, tool.reveal));
        }
        out += beside(tool, child) + "\n";
        draw(child, indent + (last ? "    " : lines.beside), tool, out);
    }
}

json to_json(const node& parent, bool reveal) {
    json object = json::object();
    for (const node& child : parent.children) {
        if (child.children.empty()) {
            object[child.name] = shown_value({child.name, child.value}, reveal);
            continue;
        }
        json inner = to_json(child, reveal);
        if (child.has_value) {
            inner[""] = shown_value({child.name, child.value}, reveal);
        }
        object[child.name] = std::move(inner);
    }
    return object;
}

}  // namespace

setting_tree::setting_tree(const std::string& path, const setting_list& settings) {
    const bool everything = path.empty() || path == "*";
    std::string_view prefix = path;
    if (prefix.size() > 1 && prefix.substr(prefix.size() - 2) == ".*") {
        prefix.remove_suffix(2);
    }
    root_.name = everything ? "" : std::string(prefix);
    const std::size_t skipped =
        everything ? 0
                   : static_cast<std::size_t>(std::count_if(prefix.begin(), prefix.end(),
                                                            [](char c) { return c == '.'; })) +
                         1;
    for (const setting& one : settings) {
        node* place = &root_;
        std::string_view rest = one.path;
        for (std::size_t depth = 0; !rest.empty(); ++depth) {
            const std::size_t dot = rest.find('.');
            if (depth >= skipped) {
                place = &child_of(*place, rest.substr(0, dot));
            }
            rest.remove_prefix(dot == std::string_view::npos ? rest.size() : dot + 1);
        }
        place->has_value = true;
        place->value = one.value;
    }
}

std::string setting_tree::as_text(const context& tool) const {
    std::string out = root_.name.empty() ? "." : root_.name;
    out += beside(tool, root_) + "\n";
    draw(root_, "", tool, out);
    return out;
}

json setting_tree::as_json(bool reveal) const {
    return to_json(root_, reveal);
}

}  // namespace veltrancord::tool
