// fsck: a configuration directory, offline.
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "directory_check.h"
#include "exit_status.h"

namespace veltrancord::tool {
namespace {

int run_check(context& tool, const std::string& directory) {
    std::vector<finding> findings;
    if (!check_files(directory, findings)) {
        return tool.fail_with(exit_not_found, directory, std::strerror(errno));
    }
    check_settings(findings);
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
    const auto directory = std::make_shared<std::string>("/mnt/database/xml");
    subcommand command =
        app.add_subcommand("fsck", "check the files of a configuration directory, offline");
    command.add_option("DIR", *directory, "the directory; /mnt/database/xml if not given");
    command.callback([&tool, directory] {
        tool.run = [&tool, directory] { return run_check(tool, *directory); };
    });
}

}  // namespace veltrancord::tool
