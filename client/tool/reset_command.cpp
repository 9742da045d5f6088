// reset: settings get the values that the description gives them.
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "description.h"
#include "exit_status.h"
#include "service.h"
#include "setting_writing.h"

namespace veltrancord::tool {
namespace {

struct reset_options {
    std::vector<std::string> paths;
    writing_options how;
};

// The value that a setting holds, in `running` where it has one. Return: exit_done, or a status
// after a message.
int read_setting(context& tool, const std::string& path, setting_map& running) {
    setting_list list;
    const int32_t result = read_place(tool, path, list);
    if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
        return tool.fail(path, result);
    }
    running.merge(by_path(list));
    return exit_done;
}

// The defaults of what `place` names: of one setting, or of all that are there at the place and
// below, and with `create` of those that could be, too.
int find_defaults(context& tool, const std::string& place, bool create, setting_map& running,
                  setting_map& defaults) {
    const schema::element_description* const element = described_at(tool, place);
    tell_mistakes(tool);
    if (element == nullptr) {
        return tool.fail_with(exit_not_found, place, "nothing describes such a setting");
    }
    const int status = read_setting(tool, place, running);
    if (status != exit_done) {
        return status;
    }
    if (element->value != nullptr && !is_subtree(place)) {
        const std::optional<std::string> value = default_of(tool, place);
        if (!value) {
            return tool.fail_with(exit_empty, place, "has no default");
        }
        defaults[place] = *value;
        return exit_done;
    }
    setting_map below = defaults_at(tool, place, running);
    std::erase_if(below, [&](const auto& one) { return !create && !running.contains(one.first); });
    if (below.empty()) {
        return tool.fail_with(exit_empty, place, "nothing here has a default");
    }
    defaults.merge(below);
    return exit_done;
}

int run_reset(context& tool, const reset_options& options) {
    if (options.how.memory_only && !tool.root.empty()) {
        return tool.fail_with(exit_usage, "--memory", "there is no service to keep it with --root");
    }
    setting_map running;
    setting_map defaults;
    for (const std::string& place : options.paths) {
        const int status = find_defaults(tool, place, options.how.create, running, defaults);
        if (status != exit_done) {
            return status;
        }
    }
    setting_list settings;
    for (const auto& [path, value] : defaults) {
        const auto held = running.find(path);
        if (held == running.end() || held->second != value) {
            settings.push_back({path, value});
        }
    }
    if (settings.empty()) {
        context::note("nothing differs from its default");
        return exit_done;
    }
    return write_checked(tool, settings, options.how);
}

}  // namespace

void add_reset_command(subcommand app, context& tool) {
    const auto reset = std::make_shared<reset_options>();
    subcommand command = app.add_subcommand(
        "reset", "give settings, or all that lie below PATH, their defaults from the description");
    command.add_option("PATH", reset->paths, "which").required();
    add_writing_options(command, tool, reset->how);
    command.callback(
        [&tool, reset] { tool.run = [&tool, reset] { return run_reset(tool, *reset); }; });
}

}  // namespace veltrancord::tool
