#include "guard/needs.h"

#include <string>

#include "store/document_set.h"
#include "store/path.h"
#include "store/value.h"
#include "update/lines.h"

namespace veltrancord {

namespace {

constexpr std::string_view program_attribute = "DispatchW";

// The document of a path; empty for a path that does not split.
bool need_of_path(command_class which, std::string_view path, const need_rule& rule) {
    XmlPath list;
    if (!SplitXmlPath(path, list)) {
        return rule({which, {}});
    }
    return rule({which, list[0].Text()});
}

// A path of one component names an attribute of the root element, as the handler takes it.
bool names_program_attribute(std::string_view path) {
    XmlPath list;
    return SplitXmlPath(path, list) && XmlPathLast(list) == program_attribute;
}

bool needs_of_lines(const command_traits& traits, std::string_view argument,
                    const need_rule& rule) {
    update_lines lines(argument);
    update_line line;
    bool any = false;
    while (lines.next(line)) {
        any = true;
        if (!need_of_path(traits.which, line.path, rule)) {
            return false;
        }
        if (traits.argument == argument_kind::attribute_lines &&
            names_program_attribute(line.path) && !rule({command_class::admin, {}})) {
            return false;
        }
    }
    return any || rule({traits.which, {}});
}

bool needs_of_memory_changes(command_class which, const need_rule& rule) {
    bool any = false;
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && (node->saveFlags & DOC_SAVE_MEMORY) != 0) {
            any = true;
            if (!rule({which, node->name})) {
                return false;
            }
        }
    }
    return any || rule({which, {}});
}

std::string_view without_level(std::string_view argument) {
    const std::size_t separator = argument.rfind('&');
    return separator != std::string_view::npos ? argument.substr(0, separator) : std::string_view();
}

std::string_view without_line_feed(std::string_view argument) {
    return argument.substr(0, argument.size() - (argument.ends_with('\n') ? 1 : 0));
}

bool needs_of_tree(command_class which, std::string_view path, const need_rule& rule) {
    return path == "*" ? each_document(which, rule) : need_of_path(which, path, rule);
}

}  // namespace

bool each_document(command_class which, const need_rule& rule) {
    bool any = false;
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr) {
            any = true;
            if (!rule({which, node->name})) {
                return false;
            }
        }
    }
    return any || rule({which, {}});
}

bool each_need(const command_traits& traits, std::string_view argument, const need_rule& rule) {
    switch (traits.argument) {
        case argument_kind::tree:
            return needs_of_tree(traits.which, argument, rule);
        case argument_kind::tree_with_level:
            return needs_of_tree(traits.which, without_level(argument), rule);
        case argument_kind::path:
            return need_of_path(traits.which, argument, rule);
        case argument_kind::lines:
        case argument_kind::attribute_lines:
            return needs_of_lines(traits, argument, rule);
        case argument_kind::removal: {
            const std::string_view path = without_line_feed(argument);
            return path == ".*" ? each_document(traits.which, rule)
                                : need_of_path(traits.which, path, rule);
        }
        case argument_kind::memory_changes:
            return needs_of_memory_changes(traits.which, rule);
        case argument_kind::none:
        case argument_kind::file_to_read:
        case argument_kind::file_to_read_cut:
        case argument_kind::file_to_write:
            return rule({traits.which, {}});
    }
    return false;
}

void each_path(const command_traits& traits, std::string_view argument, const path_rule& rule) {
    switch (traits.argument) {
        case argument_kind::none:
        case argument_kind::memory_changes:
            return;
        case argument_kind::lines:
        case argument_kind::attribute_lines: {
            update_lines lines(argument);
            update_line line;
            // A line without "=" is part of the next one's path; what stands in it may be a secret.
            while (lines.next(line) &&
                   rule(line.path.substr(line.path.rfind('\n') + 1), line.value)) {
            }
            return;
        }
        case argument_kind::removal:
            static_cast<void>(rule(without_line_feed(argument), {}));
            return;
        default:
            static_cast<void>(rule(argument, {}));
    }
}

bool names_secret(std::string_view path) {
    XmlPath list;
    return SplitXmlPath(path, list) && IsSecretName(XmlPathLast(list));
}

}  // namespace veltrancord
