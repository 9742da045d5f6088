#include "dry_run.h"

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "difference.h"
#include "exchange_file.h"
#include "exit_status.h"
#include "place_state.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

int show(context& tool, const setting_map& before, const setting_map& after) {
    print_difference(tool, compare(before, after));
    return end_dry_run();
}

// The last of several values of one path is the one that stays.
void put_over(const setting_list& settings, setting_map& held) {
    for (const setting& one : settings) {
        held[one.path] = one.value;
    }
}

std::vector<std::string> paths_in(const setting_list& settings) {
    std::vector<std::string> paths;
    paths.reserve(settings.size());
    for (const setting& one : settings) {
        paths.push_back(one.path);
    }
    return paths;
}

// Leaves out elements without a text that others lie below: these tell of them.
void drop_branches(setting_map& settings) {
    std::erase_if(settings, [&](const auto& one) {
        const auto below = settings.lower_bound(one.first + ".");
        return one.second.empty() && below != settings.end() &&
               below->first.starts_with(one.first + ".");
    });
}

// The document that a path begins with.
std::string document_of(const std::string& path) {
    return path.substr(0, path.find('.'));
}

}  // namespace

void add_dry_run(subcommand command, context& tool) {
    command.add_flag("--dry-run", tool.dry_run, "show what would change, and change nothing");
}

int end_dry_run() {
    context::note("nothing was changed");
    return exit_done;
}

int show_writing(context& tool, const setting_list& settings) {
    place_state state;
    const int32_t result = read_named(tool, paths_in(settings), state);
    if (result < 0) {
        return tool.fail(settings.front().path, result);
    }
    setting_map after = state.settings;
    put_over(settings, after);
    return show(tool, state.settings, after);
}

int show_attributes(context& tool, const setting_list& attributes) {
    place_state state;
    const int32_t result = read_named_attributes(tool, paths_in(attributes), state);
    if (result < 0) {
        return tool.fail(attributes.front().path, result);
    }
    setting_map after = state.attributes;
    put_over(attributes, after);
    return show(tool, state.attributes, after);
}

int show_removal(context& tool, const std::string& path) {
    std::string place = path;
    if (path == ".*") {
        place = "*";
    } else if (is_subtree(path)) {
        place.resize(path.size() - 2);
    }
    const int32_t found = place == "*" ? VELTRANCORD_OK : look_for(tool, place);
    if (found < 0) {
        return tool.fail(path, found);
    }
    place_state state;
    const int32_t result = read_places(tool, {place}, state);
    if (result < 0) {
        return tool.fail(path, result);
    }
    drop_branches(state.settings);
    return show(tool, state.settings, {});
}

int show_file(context& tool, const std::string& file, const std::string& text, file_use use) {
    setting_list settings;
    std::set<std::string> documents;
    if (!parse_exchange_text(text, settings, &documents)) {
        return tool.fail_with(exit_refused, file, "does not parse as XML");
    }
    setting_list running;
    const int32_t result = read_subtree(tool, "*", running);
    if (result < 0) {
        return tool.fail("*", result);
    }
    setting_map before = by_path(running);
    std::erase_if(before,
                  [&](const auto& one) { return !documents.contains(document_of(one.first)); });
    const setting_map named = by_path(settings);
    setting_map after = use == file_use::load ? named : before;
    for (const auto& [path, value] : named) {
        if (use == file_use::merge) {
            after[path] = value;
        } else {
            after.emplace(path, value);
        }
    }
    return show(tool, before, after);
}

}  // namespace veltrancord::tool
