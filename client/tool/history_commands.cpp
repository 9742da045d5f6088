// history, undo.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "change_record.h"
#include "commands.h"
#include "creation.h"
#include "exit_status.h"
#include "history.h"
#include "place_state.h"
#include "quiet_output.h"
#include "service.h"
#include "time_text.h"
#include "trail_entries.h"

namespace veltrancord::tool {
namespace {

struct history_options {
    std::string path;
    std::string trail_file;
    std::size_t count = 0;  // 0: all
};

struct undo_options {
    int64_t number = 0;  // 0: the newest that is not undone
    bool dry_run = false;
    bool force = false;
};

json to_json(const history_entry& entry) {
    json changes = json::array();
    for (const recorded_difference& one : entry.differences) {
        changes.push_back({{"path", one.path},
                           {"attribute", one.attribute},
                           {"before", one.before ? json(*one.before) : json(nullptr)},
                           {"after", one.after ? json(*one.after) : json(nullptr)}});
    }
    return {{"number", entry.number},
            {"time", entry.time},
            {"user", entry.user.empty() ? json(nullptr) : json(entry.user)},
            {"command", entry.command.empty() ? json(nullptr) : json(entry.command)},
            {"memory", entry.memory},
            {"undoes", entry.undoes != 0 ? json(entry.undoes) : json(nullptr)},
            {"forced", entry.forced},
            {"whole", !entry.cut},
            {"changes", changes}};
}

// Who has made a change that was not made with the tool: the last record of the trail that speaks
// of one of its settings, from the moments before the change was seen. Null where none does.
const trail_entry* maker_of(const history_entry& change, const std::vector<trail_entry>& trail) {
    constexpr int64_t seen_after = 10;  // seconds, where the device is busy
    const auto speaks_of = [&change](const trail_path& told) {
        return std::any_of(change.differences.begin(), change.differences.end(),
                           [&told](const recorded_difference& one) {
                               return concerns(told.path, one.path) &&
                                      (!told.after || told.path != one.path ||
                                       told.after == one.after || is_secret_path(one.path));
                           });
    };
    const auto found = std::find_if(trail.rbegin(), trail.rend(), [&](const trail_entry& one) {
        return one.kind == "change" && one.result >= 0 && one.time <= change.time + 1 &&
               one.time >= change.time - seen_after &&
               std::any_of(one.paths.begin(), one.paths.end(), speaks_of);
    });
    return found != trail.rend() ? &*found : nullptr;
}

// Puts the users of the trail into the changes that others have made. Where there is no trail, that
// is as it was. Return: an exit status; a file that was named and cannot be read is a failure.
int take_users_from_trail(context& tool, const std::string& file,
                          std::vector<history_entry>& entries) {
    const bool unknown = std::any_of(entries.begin(), entries.end(), [](const history_entry& one) {
        return one.command.empty() && one.user.empty();
    });
    std::vector<trail_entry> trail;
    if (unknown && file.empty()) {
        const quiet_output quiet;
        (void)read_trail(tool, file, trail);
    } else if (!file.empty()) {
        const int status = read_trail(tool, file, trail);
        if (status != exit_done) {
            return status;
        }
    }
    for (history_entry& entry : entries) {
        const bool other = entry.command.empty() && entry.user.empty();
        const trail_entry* const maker = other ? maker_of(entry, trail) : nullptr;
        entry.user = maker != nullptr ? maker->user : entry.user;
    }
    return exit_done;
}

std::string heading_of(const history_entry& entry) {
    std::string line = std::to_string(entry.number) + "  " + local_time(entry.time) + "  ";
    line += entry.user + (entry.user.empty() ? "" : "  ");
    line += entry.command.empty() ? "not by this tool" : entry.command;
    line += entry.memory ? "  (in memory)" : "";
    line += entry.forced ? "  (against the description)" : "";
    line += entry.cut ? "  (too large: not all of it is kept)" : "";
    return line + "\n";
}

int run_history(context& tool, const history_options& options) {
    std::vector<history_entry> entries;
    if (!read_history(entries)) {
        return tool.fail_file("history");
    }
    std::erase_if(entries, [&](const history_entry& entry) {
        return std::none_of(entry.differences.begin(), entry.differences.end(),
                            [&](const auto& one) { return lies_at(one.path, options.path); });
    });
    std::reverse(entries.begin(), entries.end());
    if (options.count > 0 && entries.size() > options.count) {
        entries.resize(options.count);
    }
    const int status = take_users_from_trail(tool, options.trail_file, entries);
    if (status != exit_done) {
        return status;
    }
    json list = json::array();
    for (const history_entry& entry : entries) {
        list.push_back(to_json(entry));
    }
    if (!tool.print_for_programs(list)) {
        for (const history_entry& entry : entries) {
            tool.print(tool.coloured("1", heading_of(entry)));
            tool.print(text_of(tool, entry.differences));
        }
    }
    return entries.empty() ? tool.fail_with(exit_empty, "history", "empty") : exit_done;
}

// The entry of that number, or the newest that neither undoes another nor was undone; null.
const history_entry* find_entry(const std::vector<history_entry>& entries, int64_t number) {
    std::set<int64_t> undone;  // by a later change that was not undone itself
    for (std::size_t at = entries.size(); at-- > 0;) {
        const history_entry& entry = entries[at];
        const bool in_effect = undone.count(entry.number) == 0;
        if (number != 0 ? entry.number == number : in_effect && entry.undoes == 0) {
            return &entry;
        }
        if (in_effect && entry.undoes != 0) {
            undone.insert(entry.undoes);
        }
    }
    return nullptr;
}

// What has to be done to undo a change.
struct undo_plan {
    setting_list settings;
    setting_list attributes;
    std::vector<std::string> removals;
    std::vector<recorded_difference> differences;  // from what is to what will be
    std::vector<std::string> left;                 // what cannot be undone, and why
};

// The uppermost element that the change made, unless something else lies in it by now.
std::string removal_of(context& tool, const recorded_difference& one,
                       const std::vector<recorded_difference>& all) {
    place_state now;
    if (one.made.empty() || read_places(tool, {one.made}, now) < 0) {
        return one.path;
    }
    for (const auto& [path, value] : now.settings) {
        const bool own = path == one.made ||
                         std::any_of(all.begin(), all.end(), [&, &name = path](const auto& other) {
                             return other.path == name || other.path.starts_with(name + ".");
                         });
        if (!own) {
            return one.path;
        }
    }
    return one.made.find('.') == std::string::npos ? one.made + ".*" : one.made;
}

void plan_one(context& tool, const recorded_difference& one,
              const std::vector<recorded_difference>& all, undo_plan& plan) {
    if (one.attribute && !one.before) {
        plan.left.push_back(one.path + ": an attribute cannot be removed");
        return;
    }
    if (one.before && one.lost) {
        plan.left.push_back(one.path + (is_secret_path(one.path)
                                            ? ": a secret is not kept in the history"
                                            : ": the value from before cannot be written"));
        return;
    }
    if (!one.before) {
        plan.removals.push_back(removal_of(tool, one, all));
    } else {
        (one.attribute ? plan.attributes : plan.settings).push_back({one.path, *one.before});
    }
    recorded_difference back = one;
    std::swap(back.before, back.after);
    plan.differences.push_back(std::move(back));
}

// Whether the place still holds what the change has left there; a secret is not compared, but has
// to be there.
bool still_holds(const recorded_difference& one, const place_state& now) {
    const auto& values = one.attribute ? now.attributes : now.settings;
    const auto found = values.find(one.path);
    if (found == values.end() || !one.after) {
        return found == values.end() && !one.after;
    }
    return *one.after == found->second || is_secret_path(one.path);
}

change_scope scope_of(const history_entry& entry, const undo_plan& plan) {
    change_scope scope;
    for (const recorded_difference& one : entry.differences) {
        (one.attribute ? scope.attributes : scope.settings).push_back(one.path);
    }
    scope.places = plan.removals;
    scope.memory = entry.memory;
    scope.undoes = entry.number;
    return scope;
}

int undo_attributes(context& tool, const setting_list& attributes) {
    std::vector<veltrancord_setting> lines;
    for (const setting& one : attributes) {
        lines.push_back({one.path.c_str(), one.value.c_str()});
    }
    const int32_t result = veltrancord_write_attributes(&tool.client(), lines.data(), lines.size());
    return result < 0 ? tool.fail_change(attributes.front().path, result) : exit_done;
}

int carry_out(context& tool, const undo_plan& plan, bool memory) {
    const int made = make_documents(tool, paths_of(plan.settings));
    if (made != exit_done) {
        return made;
    }
    if (!plan.settings.empty()) {
        const int32_t result = write_settings(tool, plan.settings, memory);
        if (result < 0) {
            return explain_failed_write(tool, plan.settings, result);
        }
    }
    for (const std::string& path : plan.removals) {
        const int32_t result = veltrancord_remove(&tool.client(), path.c_str());
        if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
            return tool.fail_change(path, result);
        }
    }
    return plan.attributes.empty() ? exit_done : undo_attributes(tool, plan.attributes);
}

// Says what was changed again since. Return: exit_done where nothing was.
int look_for_later_changes(context& tool, const history_entry& entry) {
    place_state now;
    const change_scope scope = scope_of(entry, {});
    int32_t result = read_named(tool, scope.settings, now);
    if (result >= 0) {
        result = read_named_attributes(tool, scope.attributes, now);
    }
    if (result < 0) {
        return tool.fail("undo", result);
    }
    for (const recorded_difference& one : entry.differences) {
        if (!still_holds(one, now)) {
            return tool.fail_with(
                exit_differs, one.path,
                "has been changed since; nothing was undone, --force undoes it all the same");
        }
    }
    return exit_done;
}

int undo_entry(context& tool, const history_entry& entry, const undo_options& options) {
    const std::string subject = "change " + std::to_string(entry.number);
    if (entry.cut) {
        return tool.fail_with(exit_refused, subject, "was too large to be kept whole");
    }
    int status = options.force ? exit_done : look_for_later_changes(tool, entry);
    if (status != exit_done) {
        return status;
    }
    undo_plan plan;
    for (const recorded_difference& one : entry.differences) {
        plan_one(tool, one, entry.differences, plan);
    }
    tool.print(text_of(tool, plan.differences));
    if (!options.dry_run && !plan.differences.empty()) {
        status = recorded(tool, scope_of(entry, plan),
                          [&] { return carry_out(tool, plan, entry.memory); });
    }
    for (const std::string& one : plan.left) {
        context::note(one);
    }
    if (status == exit_done && !plan.left.empty()) {
        return tool.fail_with(exit_refused, subject, "cannot be undone whole");
    }
    return status;
}

int run_undo(context& tool, const undo_options& options) {
    std::vector<history_entry> entries;
    if (!read_history(entries)) {
        return tool.fail_file("history");
    }
    const history_entry* const entry = find_entry(entries, options.number);
    if (entry == nullptr) {
        return tool.fail_with(exit_not_found, "undo",
                              options.number != 0
                                  ? "there is no change " + std::to_string(options.number)
                                  : "there is nothing to undo");
    }
    return undo_entry(tool, *entry, options);
}

}  // namespace

void add_history_commands(subcommand app, context& tool) {
    const auto history = std::make_shared<history_options>();
    subcommand command = app.add_subcommand(
        "history", "list the changes made with this tool, newest first: what, when, by whom, how");
    command.add_option("PATH", history->path, "only of this setting, or of what lies below");
    command.add_option("--count", history->count, "at most so many");
    command.add_option(
        "--trail", history->trail_file,
        "a syslog's file that tells who made what others changed; journald if not given");
    command.callback(
        [&tool, history] { tool.run = [&tool, history] { return run_history(tool, *history); }; });

    const auto undo = std::make_shared<undo_options>();
    command = app.add_subcommand("undo", "take a change of the history back");
    command.add_option("N", undo->number, "its number; the newest that is not undone if not given");
    command.add_flag("--dry-run", undo->dry_run, "only show what would become of it");
    command.add_flag("--force", undo->force, "although a setting has been changed again since");
    command.callback([&tool, undo] { tool.run = [&tool, undo] { return run_undo(tool, *undo); }; });
}

}  // namespace veltrancord::tool
