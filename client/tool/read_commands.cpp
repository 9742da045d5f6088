// get, ls, tree.
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "described_tree.h"
#include "description.h"
#include "exit_status.h"
#include "service.h"
#include "setting_tree.h"

namespace veltrancord::tool {
namespace {

struct get_options {
    std::vector<std::string> paths;
    std::optional<int32_t> level;
    bool visible = false;
    bool with_default = false;
};

// Reads what one argument of "get" names into `settings`. Return: the result.
int32_t get_one(context& tool, const get_options& options, const std::string& path,
                setting_list& settings) {
    veltrancord_client& client = tool.client();
    if (options.level || options.visible) {
        owned_reply reply;
        const int32_t result =
            options.visible
                ? veltrancord_read_visible(&client, path.c_str(), reply.get())
                : veltrancord_read_with_level(&client, path.c_str(), *options.level, reply.get());
        settings = parse_settings(reply.text());
        return result;
    }
    if (is_subtree(path)) {
        return read_subtree(tool, path, settings);
    }
    setting one{path, ""};
    const int32_t result = get_value(tool, path, one.value);
    if (result >= 0) {
        settings.push_back(std::move(one));
    }
    return result;
}

// Adds what holds where nothing is set, or an empty text. Return: the result, which is no failure
// where there is a default.
int32_t add_defaults(context& tool, const std::string& path, int32_t result,
                     setting_list& settings) {
    if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
        return result;
    }
    std::erase_if(settings, [&](const setting& one) {
        return one.value.empty() && default_of(tool, one.path);
    });
    if (is_subtree(path)) {
        const setting_map running = by_path(settings);
        for (const auto& [name, value] : defaults_at(tool, path, running)) {
            if (!running.contains(name)) {
                settings.push_back({name, value});
            }
        }
    } else if (settings.empty()) {
        const std::optional<std::string> value = default_of(tool, path);
        tell_mistakes(tool);
        if (value) {
            settings.push_back({path, *value});
        }
    }
    return settings.empty() ? result : VELTRANCORD_OK;
}

int run_get(context& tool, const get_options& options) {
    if (options.with_default && (options.level || options.visible)) {
        return tool.fail_with(exit_usage, "--with-default",
                              "goes with neither --level nor --visible");
    }
    setting_list all;
    for (const std::string& path : options.paths) {
        setting_list settings;
        int32_t result = get_one(tool, options, path, settings);
        if (options.with_default) {
            result = add_defaults(tool, path, result, settings);
        }
        const bool plain = !options.level && !options.visible && !is_subtree(path);
        if (result == VELTRANCORD_NOT_FOUND && plain && is_there(tool, path)) {
            return tool.fail_with(exit_empty, path, "has no value; PATH.* prints what lies below");
        }
        if (result < 0) {
            return tool.fail(path, result);
        }
        if (settings.empty()) {
            return tool.fail_with(exit_empty, path, "empty");
        }
        all.insert(all.end(), settings.begin(), settings.end());
    }
    const bool bare = tool.form == output_form::text && options.paths.size() == 1 &&
                      !is_subtree(options.paths.front());
    if (!bare) {
        tool.print_settings(all);
        return exit_done;
    }
    tool.print(shown_value(all.front(), tool.reveal));
    tool.end_line();
    return exit_done;
}

// Reads the settings below `path` as a tree. Return: an exit status.
int read_tree(context& tool, const std::string& path, setting_tree& tree) {
    setting_list settings;
    const int32_t result = read_subtree(tool, path, settings);
    if (result < 0) {
        return tool.fail(path.empty() ? "*" : path, result);
    }
    if (settings.empty()) {
        return tool.fail_with(exit_empty, path.empty() ? "*" : path, "nothing lies below");
    }
    tree = setting_tree(path, settings);
    return exit_done;
}

int run_ls(context& tool, const std::string& path) {
    setting_tree tree;
    const int status = read_tree(tool, path, tree);
    if (status != exit_done) {
        return status;
    }
    json names = json::array();
    for (const setting_tree::node& child : tree.root().children) {
        names.push_back({{"name", child.name}, {"children", !child.children.empty()}});
    }
    if (!tool.print_for_programs(names)) {
        for (const setting_tree::node& child : tree.root().children) {
            tool.print(child.children.empty() ? child.name
                                              : tool.coloured("1;34", child.name) + ".");
            tool.end_line();
        }
    }
    return exit_done;
}

struct tree_options {
    std::string path;
    bool describe = false;
};

int run_tree(context& tool, const tree_options& options) {
    const std::string& path = options.path;
    if (tool.form == output_form::shell) {
        setting_list settings;
        const int32_t result = read_subtree(tool, path, settings);
        if (result < 0) {
            return tool.fail(path, result);
        }
        tool.print_settings(settings);
        return settings.empty() ? exit_empty : exit_done;
    }
    setting_tree tree;
    const int status = read_tree(tool, path, tree);
    if (status != exit_done) {
        return status;
    }
    if (options.describe) {
        describe_tree(tool, tree);
    }
    if (tool.form == output_form::json) {
        tool.print_json(options.describe ? described_json(tool, tree) : tree.as_json(tool.reveal));
    } else {
        tool.print(tree.as_text(tool));
    }
    return exit_done;
}

}  // namespace

void add_read_commands(subcommand app, context& tool) {
    const auto get = std::make_shared<get_options>();
    subcommand command = app.add_subcommand("get", "print values; PATH.* prints all below PATH");
    command.add_option("PATH", get->paths, "settings").required();
    command.add_option("--level", get->level, "only what this level may see");
    command.add_flag("--visible", get->visible, "leave out what is not meant to be shown");
    command.add_flag("--with-default", get->with_default,
                     "where nothing is set, what the description gives it");
    command.callback([&tool, get] { tool.run = [&tool, get] { return run_get(tool, *get); }; });

    const auto ls_path = std::make_shared<std::string>();
    command = app.add_subcommand("ls", "list the names below PATH; without PATH the documents");
    command.add_option("PATH", *ls_path, "where");
    command.callback(
        [&tool, ls_path] { tool.run = [&tool, ls_path] { return run_ls(tool, *ls_path); }; });

    const auto tree = std::make_shared<tree_options>();
    command = app.add_subcommand("tree", "draw the settings below PATH as a tree");
    command.add_option("PATH", tree->path, "where");
    command.add_flag("--describe", tree->describe,
                     "with labels, defaults, and what is described and not set");
    command.callback([&tool, tree] { tool.run = [&tool, tree] { return run_tree(tool, *tree); }; });
}

}  // namespace veltrancord::tool
