#include "completion.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

constexpr double longest_wait_seconds = 0.3;

bool starts_with(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// Whether the word is an option whose value is the next word.
bool takes_next_word(const CLI::App* command, const std::string& word) {
    for (; command != nullptr; command = command->get_parent()) {
        const CLI::Option* option = command->get_option_no_throw(word);
        if (option != nullptr) {
            return option->get_items_expected_max() > 0;
        }
    }
    return false;
}

// The subcommands of the words so far, and the deepest of them.
const CLI::App* command_of(const CLI::App& app, const std::vector<std::string>& words,
                           std::size_t& arguments) {
    const CLI::App* command = &app;
    arguments = 0;
    for (std::size_t index = 0; index + 1 < words.size(); ++index) {
        if (starts_with(words[index], "-")) {
            if (takes_next_word(command, words[index])) {
                ++index;
            }
            continue;
        }
        const auto commands = command->get_subcommands(
            [&](const CLI::App* one) { return one->check_name(words[index]); });
        if (arguments == 0 && !commands.empty()) {
            command = commands.front();
        } else {
            ++arguments;
        }
    }
    return command;
}

void print_options(context& tool, const CLI::App& app, const std::string& start) {
    std::set<std::string> printed;
    for (const CLI::App* one = &app; one != nullptr; one = one->get_parent()) {
        for (const CLI::Option* option : one->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (starts_with("--" + name, start) && printed.insert(name).second) {
                    tool.print("--" + name + "\n");
                }
            }
        }
    }
}

bool takes_path(const CLI::App& command, std::size_t arguments) {
    static const std::set<std::string> many = {"get", "set"};
    static const std::set<std::string> one = {"ls", "tree", "unset", "edit", "watch", "list"};
    const std::string& name = command.get_name();
    const bool attribute =
        command.get_parent() != nullptr && command.get_parent()->get_name() == "attr";
    if (name == "list" && !attribute) {
        return false;  // the list of events
    }
    return many.count(name) != 0 || attribute || (one.count(name) != 0 && arguments == 0);
}

// Prints the paths that go on with what has been typed, one component further.
void print_paths(context& tool, const std::string& start) {
    const std::size_t dot = start.rfind('.');
    const std::string parent = dot == std::string::npos ? "" : start.substr(0, dot);
    setting_list settings;
    if (read_subtree(tool, parent, settings) < 0) {
        return;
    }
    const std::size_t skipped = parent.empty() ? 0 : parent.size() + 1;
    std::set<std::string> paths;
    for (const setting& one : settings) {
        const std::size_t end = one.path.find('.', skipped);
        const std::string path = end == std::string::npos ? one.path : one.path.substr(0, end + 1);
        if (starts_with(path, start)) {
            paths.insert(path);
        }
    }
    for (const std::string& path : paths) {
        tool.print(path + "\n");
    }
}

}  // namespace

int run_completion(const CLI::App& app, context& tool, std::vector<std::string> words) {
    if (words.empty()) {
        words.emplace_back();
    }
    // The socket that the line chooses is the one to ask.
    for (std::size_t index = 0; index + 1 < words.size(); ++index) {
        if (words[index] == "--socket" && index + 2 < words.size()) {
            tool.socket_path = words[index + 1];
            words.erase(words.begin() + static_cast<std::ptrdiff_t>(index),
                        words.begin() + static_cast<std::ptrdiff_t>(index) + 2);
        }
    }
    tool.timeout_seconds = std::min(tool.timeout_seconds, longest_wait_seconds);
    tool.no_pager = true;
    const std::string& start = words.back();
    std::size_t arguments = 0;
    const CLI::App* command = command_of(app, words, arguments);
    if (words.size() > 1 && takes_next_word(command, words[words.size() - 2])) {
        return exit_done;  // a file or a number: not ours to tell
    }
    if (starts_with(start, "-")) {
        print_options(tool, *command, start);
        return exit_done;
    }
    if (arguments == 0) {
        for (const CLI::App* one : command->get_subcommands([](const CLI::App*) { return true; })) {
            if (starts_with(one->get_name(), start) && !one->get_group().empty()) {
                tool.print(one->get_name() + "\n");
            }
        }
    }
    if (takes_path(*command, arguments)) {
        print_paths(tool, start);
    }
    return exit_done;
}

}  // namespace veltrancord::tool
