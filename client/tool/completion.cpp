#include "completion.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "described_words.h"
#include "description.h"
#include "exit_status.h"
#include "history.h"
#include "offline.h"
#include "quiet_output.h"
#include "service.h"
#include "service/commands.h"

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

// What could be typed, and what it means for shells that show that.
class candidate_list {
  public:
    // Of the words that have been typed the last one goes on.
    explicit candidate_list(const std::vector<std::string>& words)
        : start_(words.back()), before_(words.size() > 1 ? words[words.size() - 2] : "") {}

    // Takes the word where it goes on with what has been typed; of two that are alike the first.
    void add(const std::string& word, const std::string& meaning = {}) {
        if (starts_with(word, start_)) {
            words_.try_emplace(word, meaning);
        }
    }

    // One on a line, sorted, each with its meaning behind a tab.
    void print(context& tool) const {
        for (const auto& [word, meaning] : words_) {
            tool.print(word + (meaning.empty() ? "" : "\t" + one_short_line(meaning)) + "\n");
        }
    }

    [[nodiscard]] const std::string& start() const { return start_; }
    [[nodiscard]] const std::string& before() const { return before_; }

  private:
    static std::string one_short_line(std::string text) {
        constexpr std::size_t longest = 60;
        if (text.size() > longest) {
            text.replace(longest, std::string::npos, "...");
        }
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
        return text;
    }

    std::string start_;
    std::string before_;  // the word before it
    std::map<std::string, std::string> words_;
};

void add_options(candidate_list& list, const CLI::App& app) {
    for (const CLI::App* one = &app; one != nullptr; one = one->get_parent()) {
        for (const CLI::Option* option : one->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                list.add("--" + name, option->get_description());
            }
        }
    }
}

void add_subcommands(candidate_list& list, const CLI::App& app) {
    for (const CLI::App* one : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (!one->get_group().empty()) {
            list.add(one->get_name(), one->get_description());
        }
    }
}

// What has been typed up to its last dot.
std::string parent_of(const candidate_list& list) {
    const std::size_t dot = list.start().rfind('.');
    return dot == std::string::npos ? "" : list.start().substr(0, dot);
}

// "Largest packet: 1500", as far as it is known.
std::string meaning_of(context& tool, const std::string& path, const std::string& value) {
    const schema::element_description* const element = tool.descriptions().find(path);
    const std::string label = element != nullptr ? label_of(*element) : "";
    return label + (label.empty() || value.empty() ? "" : ": ") + value;
}

// The paths that go on with what has been typed, one component further; of settings the value.
void add_paths(context& tool, candidate_list& list) {
    const std::string parent = parent_of(list);
    setting_list settings;
    if (read_subtree(tool, parent, settings) < 0) {
        return;
    }
    const std::size_t skipped = parent.empty() ? 0 : parent.size() + 1;
    for (const setting& one : settings) {
        const std::size_t end = one.path.find('.', skipped);
        if (end == std::string::npos) {
            list.add(one.path, meaning_of(tool, one.path, shown_value(one, false)));
        } else {
            const std::string group = one.path.substr(0, end);
            list.add(group + ".", meaning_of(tool, group, ""));
        }
    }
}

// The same of all that is described, whether it is there or not.
void add_described_paths(context& tool, candidate_list& list) {
    for (const described_word& one : described_paths(tool, parent_of(list))) {
        list.add(one.word, one.meaning);
    }
}

void add_all_paths(context& tool, candidate_list& list) {
    add_paths(tool, list);
    add_described_paths(tool, list);
}

// Settings, and behind their "=" the values that they may have.
void add_assignments(context& tool, candidate_list& list) {
    const std::size_t equals = list.start().find('=');
    if (equals == std::string::npos) {
        add_all_paths(tool, list);
        return;
    }
    const std::string path = list.start().substr(0, equals);
    for (const described_word& one : described_values(tool, path)) {
        list.add(path + "=" + one.word, one.meaning);
    }
}

// The value of the setting that stands before it, in a word of its own.
void add_second_words(context& tool, candidate_list& list) {
    if (list.before().find('=') != std::string::npos) {
        add_assignments(tool, list);
        return;
    }
    for (const described_word& one : described_values(tool, list.before())) {
        list.add(one.word, one.meaning);
    }
}

// Attributes of the element that has been typed.
void add_attributes(context& tool, candidate_list& list) {
    const std::size_t dot = list.start().rfind('.');
    if (dot == std::string::npos) {
        return;
    }
    owned_reply reply;
    const std::string asked = list.start().substr(0, dot) + ".#";
    if (veltrancord_read_attributes(&tool.client(), asked.c_str(), reply.get()) > 0) {
        for (const setting& one : parse_settings(reply.text())) {
            list.add(one.path, "attribute, " + shown_value(one, false));
        }
    }
}

// For attributes the elements on the way go on, those without other elements inside too.
void add_attribute_paths(context& tool, candidate_list& list) {
    setting_list settings;
    add_attributes(tool, list);
    const std::size_t dot = list.start().rfind('.');
    const std::string parent = dot == std::string::npos ? "" : list.start().substr(0, dot);
    if (read_subtree(tool, parent, settings) < 0) {
        return;
    }
    const std::size_t skipped = parent.empty() ? 0 : parent.size() + 1;
    for (const setting& one : settings) {
        list.add(one.path.substr(0, one.path.find('.', skipped)) + ".");
    }
}

void add_which_attributes(context& tool, candidate_list& list) {
    add_attribute_paths(tool, list);
    const std::size_t dot = list.start().rfind('.');
    if (dot != std::string::npos) {
        list.add(list.start().substr(0, dot) + ".#", "all of this element");
        list.add(list.start().substr(0, dot) + ".*", "all below it");
    }
}

// The texts of the settings called `name` in the numbered elements below `parent`.
void add_named(context& tool, candidate_list& list, const std::string& parent,
               const std::string& element, const std::string& name, const std::string& meaning) {
    setting_list settings;
    if (read_subtree(tool, parent, settings) < 0) {
        return;
    }
    const std::string start = parent + "." + element;
    for (const setting& one : settings) {
        const std::size_t number = one.path.find_first_not_of("0123456789", start.size());
        if (starts_with(one.path, start) && number != std::string::npos && number > start.size() &&
            one.path.substr(number) == "." + name) {
            list.add(one.value, meaning);
        }
    }
}

void add_users(context& tool, candidate_list& list) {
    add_named(tool, list, "Account", "User", "Username", "user");
}

void add_groups(context& tool, candidate_list& list) {
    add_named(tool, list, "Account.Permission", "Group", "Name", "group");
}

// Lines "permit3=Name&type=Switch&value=ON".
void add_permits(context& tool, candidate_list& list) {
    owned_reply reply;
    if (veltrancord_list_permits(&tool.client(), reply.get()) > 0) {
        for (const setting& one : parse_settings(reply.text())) {
            const std::size_t type = one.value.find("&type=");
            const std::size_t value = one.value.find("&value=");
            if (type < value && value != std::string::npos) {
                list.add(one.value.substr(0, type), one.value.substr(type + 6, value - type - 6));
            }
        }
    }
}

void add_raw_commands(context& /*tool*/, candidate_list& list) {
    for (const command_row& row : command_table()) {
        list.add(std::string(row.name), std::string(row.description));
    }
}

void add_forms(context& /*tool*/, candidate_list& list) {
    list.add("text", "for people");
    list.add("json", "for programs");
    list.add("shell", "assignments to eval");
}

void add_change_numbers(context& /*tool*/, candidate_list& list) {
    std::vector<history_entry> entries;
    if (read_history(entries)) {
        for (const history_entry& one : entries) {
            list.add(std::to_string(one.number), one.command);
        }
    }
}

using adder = void(context& tool, candidate_list& list);

// What stands where, by the name of the command and the place among its arguments, or the name of
// an option.
struct completed_place {
    std::string_view command;  // empty: of any command
    std::string_view option;   // empty: an argument
    std::size_t first = 0;     // place of the argument, from 0
    std::size_t last = 0;      // the last place where the same stands
    adder* add = nullptr;
};
constexpr std::size_t any = 1000;

constexpr completed_place places[] = {
    {"get", "", 0, any, add_paths},
    {"set", "", 0, 0, add_assignments},
    {"set", "", 1, 1, add_second_words},
    {"set", "", 2, any, add_assignments},
    {"reset", "", 0, any, add_described_paths},
    {"describe", "", 0, 0, add_described_paths},
    {"ls", "", 0, 0, add_paths},
    {"tree", "", 0, 0, add_paths},
    {"unset", "", 0, 0, add_paths},
    {"edit", "", 0, 0, add_paths},
    {"watch", "", 0, 0, add_paths},
    {"history", "", 0, 0, add_paths},
    {"snapshot", "", 1, 1, add_paths},
    {"diff", "--path", 0, 0, add_paths},
    {"attr get", "", 0, 0, add_attribute_paths},
    {"attr set", "", 0, any, add_attribute_paths},
    {"attr list", "", 0, 0, add_which_attributes},
    {"can", "", 0, 0, add_users},
    {"can", "", 0, 0, add_groups},
    {"can", "", 1, 1, add_permits},
    {"permits value", "", 0, 0, add_groups},
    {"permits value", "", 1, 1, add_permits},
    {"group", "", 0, 0, add_users},
    {"filter", "", 0, 0, add_users},
    {"raw", "", 0, 0, add_raw_commands},
    {"trail", "", 0, 0, add_paths},
    {"access explain", "", 1, 1, add_raw_commands},
    {"access explain", "", 2, 2, add_paths},
    {"undo", "", 0, 0, add_change_numbers},
    {"", "--format", 0, 0, add_forms},
};

std::string name_of(const CLI::App& command) {
    const CLI::App* const around = command.get_parent();
    if (around == nullptr) {
        return {};
    }
    const std::string outer = name_of(*around);
    return outer.empty() ? command.get_name() : outer + " " + command.get_name();
}

void add_place(context& tool, candidate_list& list, const std::string& command,
               const std::string& option, std::size_t argument) {
    for (const completed_place& one : places) {
        const bool fits = (one.command.empty() || one.command == command) && one.option == option &&
                          (!option.empty() || (argument >= one.first && argument <= one.last));
        if (fits) {
            one.add(tool, list);
        }
    }
}

// Takes "NAME VALUE" out of the words where it stands before the last one. Return: the value.
std::string take_option(std::vector<std::string>& words, const std::string& name) {
    for (std::size_t index = 0; index + 2 < words.size(); ++index) {
        if (words[index] == name) {
            std::string value = words[index + 1];
            const auto place = words.begin() + static_cast<std::ptrdiff_t>(index);
            words.erase(place, place + 2);
            return value;
        }
    }
    return {};
}

void complete_last(const CLI::App& app, context& tool, const std::vector<std::string>& words) {
    candidate_list list(words);
    std::size_t arguments = 0;
    const CLI::App* command = command_of(app, words, arguments);
    if (words.size() > 1 && takes_next_word(command, words[words.size() - 2])) {
        add_place(tool, list, name_of(*command), words[words.size() - 2], 0);
    } else if (starts_with(list.start(), "-")) {
        add_options(list, *command);
    } else if (command->get_name() == "help") {
        const std::vector<std::string> rest(
            words.end() - static_cast<std::ptrdiff_t>(arguments) - 1, words.end());
        add_subcommands(list, *command_of(app, rest, arguments));
    } else {
        if (arguments == 0) {
            add_subcommands(list, *command);
        }
        add_place(tool, list, name_of(*command), "", arguments);
    }
    list.print(tool);
}

}  // namespace

int run_completion(const CLI::App& app, context& tool, std::vector<std::string> words) {
    if (words.empty()) {
        words.emplace_back();
    }
    // What the line chooses is what is asked.
    const std::string socket = take_option(words, "--socket");
    tool.socket_path = socket.empty() ? tool.socket_path : socket;
    tool.root = take_option(words, "--root");
    const std::string schema = take_option(words, "--schema");
    tool.schema_directory = schema.empty() ? tool.schema_directory : schema;
    tool.timeout_seconds = std::min(tool.timeout_seconds, longest_wait_seconds);
    tool.no_pager = true;
    offline_service service;
    if (!tool.root.empty()) {
        const quiet_output quiet;
        if (service.start(tool) != exit_done) {
            return exit_done;
        }
    }
    complete_last(app, tool, words);
    return exit_done;
}

}  // namespace veltrancord::tool
