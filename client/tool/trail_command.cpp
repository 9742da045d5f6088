// trail: who changed what, and who was refused.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "exit_status.h"
#include "setting.h"
#include "terminal_text.h"
#include "time_text.h"
#include "trail_entries.h"

namespace veltrancord::tool {
namespace {

struct trail_options {
    std::string path;
    std::string file;
    std::string user;
    std::size_t count = 0;  // 0: all
    bool refused = false;
};

bool is_asked_for(const trail_entry& entry, const trail_options& options) {
    const bool user =
        options.user.empty() || entry.user == options.user || entry.uid == options.user;
    const bool kind = !options.refused || entry.kind != "change";
    return user && kind &&
           (options.path.empty() ||
            std::any_of(entry.paths.begin(), entry.paths.end(),
                        [&](const trail_path& one) { return concerns(one.path, options.path); }));
}

json side(const std::optional<std::string>& value) {
    return value ? json(*value) : json(nullptr);
}

json as_json(const trail_entry& entry) {
    json paths = json::array();
    for (const trail_path& one : entry.paths) {
        paths.push_back(
            {{"path", one.path}, {"before", side(one.before)}, {"after", side(one.after)}});
    }
    return {{"time", entry.time},
            {"kind", entry.kind},
            {"user", entry.user},
            {"uid", entry.uid},
            {"process", entry.process},
            {"program", entry.program},
            {"command", entry.command},
            {"result", entry.result},
            {"more", entry.more},
            {"lost", entry.lost},
            {"paths", paths}};
}

// A record stays on its line, wherever it is shown: what came with it may hold whatever a client
// has sent. No NUL byte goes on to where it would begin a colour.
std::string one_line_of(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char one) { return one == '\n' || one == '\t' || one == '\0'; }, '?');
    return terminal_text(text, true);
}

std::string heading_of(const trail_entry& entry) {
    std::string line = local_time(entry.time) + "  " + one_line_of(entry.user) + "  " +
                       one_line_of(entry.program) + "[" + one_line_of(entry.process) + "]  " +
                       one_line_of(entry.command);
    for (const trail_path& one : entry.paths) {
        line += " " + one_line_of(one.path);
    }
    line += entry.more > 0 ? " and " + std::to_string(entry.more) + " more" : "";
    line += entry.kind == "change" ? "" : "  " + one_line_of(entry.kind);
    line += entry.kind == "change" && entry.result < 0
                ? "  failed (" + std::to_string(entry.result) + ")"
                : "";
    return line + "\n";
}

std::string text_of(const context& tool, const trail_entry& entry) {
    std::string text = entry.lost > 0
                           ? "before this, " + std::to_string(entry.lost) + " records were lost\n"
                           : std::string();
    text.insert(0, tool.coloured("1", heading_of(entry)));
    for (const trail_path& one : entry.paths) {
        const auto add = [&](const char* sign, const char* colour,
                             const std::optional<std::string>& value) {
            if (value) {
                text += tool.coloured(colour, sign + one_line_of(one.path + "=" + *value)) + "\n";
            }
        };
        add("-", "31", one.before);
        add("+", "32", one.after);
    }
    return text;
}

int run_trail(context& tool, const trail_options& options) {
    std::vector<trail_entry> entries;
    const int status = read_trail(tool, options.file, entries);
    if (status != exit_done) {
        return status;
    }
    std::erase_if(entries, [&](const trail_entry& one) { return !is_asked_for(one, options); });
    std::reverse(entries.begin(), entries.end());
    if (options.count > 0 && entries.size() > options.count) {
        entries.resize(options.count);
    }
    json list = json::array();
    for (const trail_entry& one : entries) {
        list.push_back(as_json(one));
    }
    if (!tool.print_for_programs(list)) {
        for (const trail_entry& one : entries) {
            tool.print(text_of(tool, one));
        }
    }
    return entries.empty() ? tool.fail_with(exit_empty, "trail", "empty") : exit_done;
}

}  // namespace

void add_trail_command(subcommand app, context& tool) {
    const auto options = std::make_shared<trail_options>();
    subcommand command = app.add_subcommand(
        "trail", "list what the service has told of who changed what, newest first");
    command.add_option("PATH", options->path, "only of this setting, or of what lies below");
    command.add_option("--file", options->file,
                       "this file of a syslog; journald's records if not given");
    command.add_option("--user", options->user, "only of this user, a name or a number");
    command.add_option("--count", options->count, "at most so many");
    command.add_flag("--refused", options->refused, "only what was refused");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_trail(tool, *options); }; });
}

}  // namespace veltrancord::tool
