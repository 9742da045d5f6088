// snapshot, diff.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "description.h"
#include "difference.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

struct diff_options {
    std::string file;
    std::string other;
    std::string path;
    bool all = false;
    bool defaults = false;
};

int run_snapshot(context& tool, const std::string& file, const std::string& path) {
    if (file == "-") {
        return tool.fail_with(exit_usage, "snapshot",
                              "needs a file: it holds secrets, and is made for its owner alone");
    }
    setting_map settings;
    const int status = read_running(tool, path, settings);
    if (status != exit_done) {
        return status;
    }
    if (!write_private_file(file, snapshot_text(settings))) {
        return tool.fail_file(file);
    }
    return exit_done;
}

// Drops what is not at `path` or below.
void keep_place(const std::string& path, setting_map& settings) {
    if (path.empty() || path == "*") {
        return;
    }
    std::erase_if(settings, [&](const auto& one) { return !lies_at(one.first, path); });
}

// The running settings of the place, which may be none: the file may have some.
int read_running_place(context& tool, const std::string& path, setting_map& settings) {
    setting_list list;
    const int32_t result = read_place(tool, path, list);
    if (result < 0 && (result != VELTRANCORD_NOT_FOUND || path.empty())) {
        return tool.fail(path.empty() ? "*" : path, result);
    }
    settings = by_path(list);
    return exit_done;
}

// From what is to what the description gives: what would change if all defaults were written. What
// was never set is added.
int diff_with_defaults(context& tool, const diff_options& options) {
    if (!options.file.empty() || options.all) {
        return tool.fail_with(exit_usage, "--defaults", "goes with neither a FILE nor --all");
    }
    if (!is_anything_described(tool)) {
        return tool.fail_with(exit_not_found, tool.schema_directory, "there is no description");
    }
    setting_map before;
    const int status = read_running_place(tool, options.path, before);
    if (status != exit_done) {
        return status;
    }
    const setting_map after = defaults_at(tool, options.path, before);
    std::erase_if(before, [&](const auto& one) { return !after.contains(one.first); });
    const std::vector<setting_change> changes = compare(before, after);
    print_difference(tool, changes);
    return changes.empty() ? exit_done : exit_differs;
}

// From what is to what will be: from the running settings to FILE, or from FILE to OTHER. Of the
// running ones those that FILE says nothing of stay as they are, and are left out unless asked for.
int run_diff(context& tool, const diff_options& options) {
    if (options.defaults) {
        return diff_with_defaults(tool, options);
    }
    if (options.file.empty()) {
        return tool.fail_with(exit_usage, "diff", "needs a FILE, or --defaults");
    }
    const bool running = options.other.empty();
    setting_map before;
    setting_map after;
    int status = read_settings_file(tool, running ? options.file : options.other, after);
    if (status == exit_done) {
        status = running ? read_running_place(tool, options.path, before)
                         : read_settings_file(tool, options.file, before);
    }
    if (status != exit_done) {
        return status;
    }
    keep_place(options.path, before);
    keep_place(options.path, after);
    if (before.empty() && after.empty() && !options.path.empty() && options.path != "*") {
        return tool.fail_with(exit_not_found, options.path,
                              "there is no such setting on either side");
    }
    if (running && !options.all) {
        std::erase_if(before, [&](const auto& one) { return !after.contains(one.first); });
    }
    const std::vector<setting_change> changes = compare(before, after);
    print_difference(tool, changes);
    return changes.empty() ? exit_done : exit_differs;
}

}  // namespace

void add_difference_commands(subcommand app, context& tool) {
    const auto snapshot = std::make_shared<diff_options>();
    subcommand command =
        app.add_subcommand("snapshot", "save all settings as lines in a file of your own");
    command.add_option("FILE", snapshot->file, "the file to write").required();
    command.add_option("PATH", snapshot->path, "only this setting, or what lies below");
    command.callback([&tool, snapshot] {
        tool.run = [&tool, snapshot] { return run_snapshot(tool, snapshot->file, snapshot->path); };
    });

    const auto diff = std::make_shared<diff_options>();
    command = app.add_subcommand("diff",
                                 "show what FILE would change, or what differs from FILE to OTHER");
    command.add_option("FILE", diff->file, "a snapshot, lines or an exchange file; \"-\"");
    command.add_option("OTHER", diff->other, "a second file: what FILE would have to become");
    command.add_option("--path", diff->path, "only this setting, or what lies below");
    command.add_flag("--defaults", diff->defaults,
                     "in place of FILE: what the description gives where nothing is set");
    command.add_flag("--all", diff->all, "also running settings that FILE does not name");
    command.callback([&tool, diff] { tool.run = [&tool, diff] { return run_diff(tool, *diff); }; });
}

}  // namespace veltrancord::tool
