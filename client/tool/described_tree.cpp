#include "described_tree.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "description.h"

namespace veltrancord::tool {
namespace {

using node = setting_tree::node;
using schema::element_description;

// What describes a child of a place; at the top, where `around` is null and there is no path, the
// children are documents.
const element_description* described_child(context& tool, const element_description* around,
                                           bool top, const std::string& name) {
    if (top) {
        return tool.descriptions().find(name);
    }
    return around != nullptr ? around->child(schema::stored_name(name)) : nullptr;
}

bool shows_default(const element_description& element) {
    return element.default_value && !element.secret();
}

std::string note_of(const node& one, const element_description& element) {
    std::string note = label_of(element);
    if (!element.told.unit.empty()) {
        note += (note.empty() ? "[" : " [") + element.told.unit + "]";
    }
    std::string state = one.is_there ? "" : "not set";
    if (shows_default(element) && !(one.has_value && one.value == *element.default_value)) {
        state += (state.empty() ? "default " : ", default ") + *element.default_value;
    }
    if (!state.empty()) {
        note += (note.empty() ? "(" : " (") + state + ")";
    }
    return note;
}

void describe_children(context& tool, node& parent, const element_description* around, bool top) {
    for (node& child : parent.children) {
        const element_description* const element = described_child(tool, around, top, child.name);
        if (element != nullptr) {
            child.note = note_of(child, *element);
        } else if (around != nullptr) {
            child.note = "(not described)";
        }
        describe_children(tool, child, element, false);
    }
    if (around == nullptr || around->structure == nullptr) {
        return;
    }
    for (const element_description& one : around->structure->elements) {
        const std::string name = schema::client_name(one.name);
        const bool there = std::any_of(parent.children.begin(), parent.children.end(),
                                       [&](const node& child) { return child.name == name; });
        if (!there) {
            node missing;
            missing.name = name;
            missing.is_there = false;
            missing.note = note_of(missing, one);
            parent.children.push_back(std::move(missing));
        }
    }
}

json text_or_null(std::string_view text) {
    return text.empty() ? json(nullptr) : json(text);
}

json own_json(const context& tool, const node& one, const element_description* element) {
    json own = {{"value", one.has_value ? json(shown_value({one.name, one.value}, tool.reveal))
                                        : json(nullptr)},
                {"label", nullptr},
                {"allowed", nullptr},
                {"default", nullptr},
                {"unit", nullptr}};
    if (element != nullptr) {
        own["label"] = text_or_null(label_of(*element));
        own["unit"] = text_or_null(element->told.unit);
        if (element->value != nullptr) {
            own["allowed"] = schema::type_text(*element->value);
        }
        if (shows_default(*element)) {
            own["default"] = *element->default_value;
        }
    }
    return own;
}

bool is_group(const node& one, const element_description* element) {
    return !one.children.empty() || (element != nullptr && element->structure != nullptr &&
                                     !element->structure->elements.empty());
}

json children_json(context& tool, const node& parent, const element_description* around, bool top) {
    json object = json::object();
    for (const node& child : parent.children) {
        const element_description* const element = described_child(tool, around, top, child.name);
        json own = own_json(tool, child, element);
        if (is_group(child, element)) {
            json inner = children_json(tool, child, element, false);
            inner[""] = std::move(own);
            object[child.name] = std::move(inner);
        } else {
            object[child.name] = std::move(own);
        }
    }
    return object;
}

}  // namespace

void describe_tree(context& tool, setting_tree& tree) {
    const std::string& path = tree.root().name;
    const element_description* const element =
        path.empty() ? nullptr : tool.descriptions().find(path);
    if (element != nullptr) {
        tree.root().note = note_of(tree.root(), *element);
    }
    describe_children(tool, tree.root(), element, path.empty());
    tell_mistakes(tool);
}

json described_json(context& tool, const setting_tree& tree) {
    const std::string& path = tree.root().name;
    return children_json(tool, tree.root(), path.empty() ? nullptr : tool.descriptions().find(path),
                         path.empty());
}

}  // namespace veltrancord::tool
