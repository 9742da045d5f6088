// fsck: a configuration directory, offline.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "directory_check.h"
#include "exit_status.h"

namespace veltrancord::tool {
namespace {

struct check_options {
    std::string directory;
    std::string log_file;
};

// The device's own log belongs to the device's own directory, and not to a copy elsewhere.
check_options with_defaults(check_options options) {
    if (options.directory.empty()) {
        options.directory = "/mnt/database/xml";
        if (options.log_file.empty()) {
            options.log_file = "/mnt/database/eventlog/log";
        }
    }
    return options;
}

int run_check(context& tool, const check_options& options) {
    std::vector<finding> findings;
    if (!check_files(options.directory, findings)) {
        return tool.fail_file(options.directory);
    }
    check_settings(findings);
    check_permits(findings);
    check_descriptions(options.directory, tool.descriptions(), findings);
    if (!options.log_file.empty()) {
        check_log(options.log_file, findings);
    }
    json list = json::array();
    for (const finding& one : findings) {
        list.push_back(
            {{"file", one.file}, {"path", one.place}, {"kind", one.kind}, {"text", one.text}});
    }
    if (!tool.print_for_programs(list)) {
        for (const finding& one : findings) {
            tool.print(one.file + (one.place.empty() ? "" : " " + one.place) + ": ");
            tool.print(tool.coloured("33", one.text) + " [" + one.kind + "]");
            tool.end_line();
        }
    }
    return findings.empty() ? exit_done : exit_differs;
}

}  // namespace

void add_check_command(subcommand app, context& tool) {
    const auto options = std::make_shared<check_options>();
    subcommand command =
        app.add_subcommand("fsck", "check the files of a configuration directory, offline");
    command.add_option(
        "DIR", options->directory,
        "the directory; /mnt/database/xml, and the device's event log, if not given");
    command.add_option("--log-file", options->log_file, "this event log, too");
    command.callback([&tool, options] {
        tool.run = [&tool, options] { return run_check(tool, with_defaults(*options)); };
    });
}

}  // namespace veltrancord::tool
