// attr get, attr list, attr set.
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "change_record.h"
#include "commands.h"
#include "dry_run.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

int run_get(context& tool, const std::string& path) {
    std::string value(65536, '\0');
    const int32_t result =
        veltrancord_get_attribute(&tool.client(), path.c_str(), value.data(), value.size());
    if (result < 0) {
        return tool.fail(path, result);
    }
    value.resize(static_cast<std::size_t>(result));
    if (tool.form != output_form::text) {
        tool.print_settings({{path, value}});
        return exit_done;
    }
    tool.print(value);
    tool.end_line();
    return exit_done;
}

int run_list(context& tool, const std::string& path) {
    owned_reply reply;
    const int32_t result = veltrancord_read_attributes(&tool.client(), path.c_str(), reply.get());
    if (result < 0) {
        return tool.fail(path, result);
    }
    const setting_list settings = parse_settings(reply.text());
    if (settings.empty()) {
        return tool.fail_with(exit_empty, path, "empty");
    }
    tool.print_settings(settings);
    return exit_done;
}

// The service tells an attribute that it cannot keep and an element that is missing alike.
int explain_failed_attributes(context& tool, const setting_list& settings, int32_t result) {
    const std::size_t index = tool.client().error.index;
    const std::size_t refused = index < settings.size() ? index : 0;
    if (result == VELTRANCORD_STORE_FAILED) {
        for (const setting& one : settings) {
            const std::string element = one.path.substr(0, one.path.rfind('.'));
            if (!is_there(tool, element)) {
                return tool.fail_with(exit_not_found, element, "there is no such element");
            }
        }
    }
    return tool.fail_change(settings[refused].path, result);
}

int run_set(context& tool, const std::vector<std::string>& words) {
    setting_list settings;
    if (words.size() == 2 && words[0].find('=') == std::string::npos) {
        settings.push_back({words[0], words[1]});
    } else {
        for (const std::string& word : words) {
            const std::size_t equals = word.find('=');
            if (equals == std::string::npos) {
                return tool.fail_with(exit_usage, word, "is neither PATH VALUE nor PATH=VALUE");
            }
            settings.push_back({word.substr(0, equals), word.substr(equals + 1)});
        }
    }
    if (tool.dry_run) {
        return show_attributes(tool, settings);
    }
    std::vector<veltrancord_setting> lines;
    for (const setting& one : settings) {
        lines.push_back({one.path.c_str(), one.value.c_str()});
    }
    change_scope scope;
    scope.attributes = paths_of(settings);
    return recorded(tool, scope, [&] {
        const int32_t result =
            veltrancord_write_attributes(&tool.client(), lines.data(), lines.size());
        return result < 0 ? explain_failed_attributes(tool, settings, result)
                          : static_cast<int>(exit_done);
    });
}

}  // namespace

void add_attribute_commands(subcommand app, context& tool) {
    subcommand attr = app.add_subcommand("attr", "attributes: the last component names one");
    attr.require_subcommand(1);
    attr.fallthrough();

    const auto get_path = std::make_shared<std::string>();
    subcommand command = attr.add_subcommand("get", "print one attribute");
    command.fallthrough();
    command.add_option("PATH", *get_path, "Document.Element.Attribute").required();
    command.callback(
        [&tool, get_path] { tool.run = [&tool, get_path] { return run_get(tool, *get_path); }; });

    const auto list_path = std::make_shared<std::string>();
    command = attr.add_subcommand(
        "list", "print attributes: of an element (PATH.#), below it (PATH.*), by name (PATH.*.N)");
    command.fallthrough();
    command.add_option("PATH", *list_path, "which").required();
    command.callback([&tool, list_path] {
        tool.run = [&tool, list_path] { return run_list(tool, *list_path); };
    });

    const auto words = std::make_shared<std::vector<std::string>>();
    command = attr.add_subcommand("set", "write attributes: PATH VALUE or PATH=VALUE ...");
    command.fallthrough();
    command.add_option("SETTING", *words, "what to write").required();
    add_dry_run(command, tool);
    command.callback(
        [&tool, words] { tool.run = [&tool, words] { return run_set(tool, *words); }; });
}

}  // namespace veltrancord::tool
