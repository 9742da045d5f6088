// veltrancordctl: the configuration service from the command line.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command_help.h"
#include "commands.h"
#include "completion.h"
#include "encoding/secret.h"
#include "exit_status.h"
#include "offline.h"
#include "schema/usual_directory.h"

namespace veltrancord::tool {
namespace {

void add_general_options(CLI::App& app, context& tool) {
    const char* socket = std::getenv("VELTRANCORD_SOCKET");
    tool.socket_path = socket != nullptr && *socket != '\0' ? socket : VELTRANCORD_DEFAULT_SOCKET;
    app.add_option("--socket", tool.socket_path,
                   "the service's socket (also VELTRANCORD_SOCKET in the environment)");
    app.add_option("--timeout", tool.timeout_seconds,
                   "seconds for each exchange, 5 by default; below 0: no limit");
    app.add_flag_callback(
        "--json", [&tool] { tool.form = output_form::json; }, "the same as --format json");
    app.add_option_function<std::string>(
           "--format",
           [&tool](const std::string& name) {
               tool.form = name == "json"    ? output_form::json
                           : name == "shell" ? output_form::shell
                                             : output_form::text;
           },
           "how to print: text, json or shell")
        ->check(CLI::IsMember({"text", "json", "shell"}));
    app.add_flag("-0,--null", tool.null_separated,
                 "a NUL byte ends each line, of input too, in place of a line feed");
    app.add_flag("--reveal", tool.reveal, "show secrets");
    app.add_flag("-y,--yes", tool.assume_yes, "do not ask before something is destroyed");
    app.add_option("--backup", tool.backup_file,
                   "before something is destroyed, write all documents into this file");
    app.add_flag("--no-pager", tool.no_pager, "never page the output");
    app.add_flag_callback(
        "--no-color", [&tool] { tool.may_colour = false; },
        "no colours (as NO_COLOR in the environment)");
    app.add_flag_callback(
        "-q,--quiet", [] { g_quiet = true; }, "say nothing but failures on standard error");
    app.add_flag("-v,--verbose", tool.verbose, "say more of what is done on standard error");
    tool.schema_directory = schema::usual_directory();
    app.add_option("--schema", tool.schema_directory,
                   "the directory of the descriptions of settings (also VELTRANCORD_SCHEMA in the "
                   "environment)");
    app.add_option("--root", tool.root,
                   "work on the documents of this directory, without a service");
    const char* key = std::getenv("VELTRANCORD_KEY");
    tool.key = key != nullptr ? key : "";
    app.add_option("--key", tool.key,
                   "the product's key for stored secrets, with --root and for exchange files, 7 "
                   "characters (also VELTRANCORD_KEY in the environment)");
    app.set_version_flag("--version", "veltrancordctl " VELTRANCORD_VERSION);
}

// Scripts ask for values by the hundred, each time by a program of its own, and to describe all the
// commands takes longer than to ask for a value.
bool is_read_command(std::string_view first_word) {
    return first_word == "get" || first_word == "ls" || first_word == "tree";
}

// In the order of the help's headings.
void add_other_commands(const subcommand& top, context& tool) {
    add_write_commands(top, tool);
    add_reset_command(top, tool);
    add_describe_command(top, tool);
    add_attribute_commands(top, tool);
    add_document_commands(top, tool);
    add_difference_commands(top, tool);
    add_apply_commands(top, tool);
    add_trial_commands(top, tool);
    add_edit_command(top, tool);
    add_history_commands(top, tool);
    add_trail_command(top, tool);
    add_watch_command(top, tool);
    add_log_commands(top, tool);
    add_permit_commands(top, tool);
    add_access_commands(top, tool);
    add_session_commands(top, tool);
    add_exchange_commands(top, tool);
    add_check_command(top, tool);
    add_doctor_command(top, tool);
    add_schema_command(top, tool);
    add_stats_command(top, tool);
}

std::string name_within(const std::string& around, const CLI::App& command) {
    return around.empty() ? command.get_name() : around + " " + command.get_name();
}

// Puts headings, examples and exit statuses into the help of all commands inside `app`, whose name
// is `around`. Done when help is asked for, and not before each value that a script asks for.
void describe_commands(CLI::App& app, const std::string& around) {
    for (CLI::App* one : app.get_subcommands([](CLI::App*) { return true; })) {
        const std::string name = name_within(around, *one);
        const command_help* help = find_command_help(name);
        if (help != nullptr && help->group != nullptr) {
            one->group(help->group);
        }
        one->footer(help != nullptr ? help_footer(*help) : std::string());
        describe_commands(*one, name);
    }
}

// The command that was chosen: the inner one of "log add".
const CLI::App& chosen_command(const CLI::App& app) {
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
    }
    return *command;
}

// Its name, both words of it; empty for the program itself.
std::string name_of(const CLI::App& command) {
    const CLI::App* const around = command.get_parent();
    return around == nullptr ? std::string() : name_within(name_of(*around), command);
}

int run_help(CLI::App& app, context& tool, const std::vector<std::string>& words) {
    const CLI::App* command = &app;
    std::string name = app.get_name();
    for (const std::string& word : words) {
        name += " " + word;
        const auto inner =
            command->get_subcommands([&](const CLI::App* one) { return one->get_name() == word; });
        if (inner.empty()) {
            return tool.fail_with(exit_usage, "help", "there is no command \"" + word + "\"");
        }
        command = inner.front();
    }
    describe_commands(app, "");
    tool.print(app.get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal));
    return exit_done;
}

void add_help_command(CLI::App& app, context& tool) {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* const help = app.add_subcommand("help", "tell all of a command, or list them all");
    help->add_option("COMMAND", *words, "its name, as in: log add");
    help->callback([&app, &tool, words] {
        tool.run = [&app, &tool, words] { return run_help(app, tool, *words); };
    });
}

// The words behind the program's name. The parser takes "-0" for a number.
std::vector<std::string> words_of(int argument_count, char** arguments) {
    std::vector<std::string> words(arguments + 1, arguments + argument_count);
    const auto mark = std::find(words.begin(), words.end(), "--");
    std::replace(words.begin(), mark, std::string("-0"), std::string("--null"));
    return words;
}

// The words as they may be typed into a shell again, but for what stands behind "--key".
std::string shown_command(const std::vector<std::string>& words) {
    constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,+@%";
    std::string line = "veltrancordctl";
    bool hidden = false;
    for (const std::string& word : words) {
        const bool is_plain = word.find_first_not_of(plain) == std::string::npos && !word.empty();
        const bool joined = word.starts_with("--key=");
        line += " ";
        line += hidden     ? std::string(masked_value)
                : joined   ? "--key=" + std::string(masked_value)
                : is_plain ? word
                           : shell_quoted(word);
        hidden = word == "--key";
    }
    return line;
}

// Says which command was used wrongly, and how.
int explain_usage(context& tool, const CLI::App& app, const CLI::ParseError& failure) {
    const CLI::App& command = chosen_command(app);
    const std::string name = name_of(command);
    std::string reason = failure.what();
    if (command.get_require_subcommand_min() > 0) {
        const std::vector<std::string> rest = app.remaining(true);
        reason =
            rest.empty() ? "a command is missing" : "there is no command \"" + rest.front() + "\"";
    }
    return tool.fail_with(
        exit_usage, name.empty() ? "usage" : name,
        reason + "; see veltrancordctl " + name + (name.empty() ? "" : " ") + "--help");
}

// Runs the command, on the documents of a directory with --root.
int run_chosen(context& tool, const std::string& name) {
    if (!tool.key.empty() && !use_value_key(tool.key)) {
        return tool.fail_with(exit_usage, "--key", "has 7 printable characters");
    }
    if (tool.root.empty()) {
        return tool.run();
    }
    const command_help* const help = find_command_help(name);
    if (help == nullptr || !help->offline) {
        return tool.fail_with(exit_usage, name, "asks the service; --root does not go with it");
    }
    offline_service service;
    const int started = service.start(tool);
    return started == exit_done ? service.finish(tool, tool.run()) : started;
}

int run_tool(int argument_count, char** arguments) {
    context tool;
    CLI::App app("Ask and change the configuration service Veltrancord.", "veltrancordctl");
    app.require_subcommand(1);
    app.fallthrough();
    add_general_options(app, tool);
    const subcommand top(app);
    std::vector<std::string> words = words_of(argument_count, arguments);
    add_read_commands(top, tool);
    if (words.empty() || !is_read_command(words.front())) {
        add_other_commands(top, tool);
        add_help_command(app, tool);
    }
    if (!words.empty() && words.front() == "complete") {
        const bool marked = words.size() > 1 && words[1] == "--";
        words.erase(words.begin(), words.begin() + (marked ? 2 : 1));
        return tool.finish(run_completion(app, tool, std::move(words)));
    }
    tool.command_line = shown_command(words);
    const bool wants_json = std::find(words.begin(), words.end(), "--json") != words.end();
    std::reverse(words.begin(), words.end());  // the parser takes them from the end
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& failure) {
        if (dynamic_cast<const CLI::CallForHelp*>(&failure) != nullptr) {
            describe_commands(app, "");
        }
        if (failure.get_exit_code() == 0) {
            return app.exit(failure);  // help or the version was asked for
        }
        tool.form = wants_json ? output_form::json : tool.form;
        return explain_usage(tool, app, failure);
    }
    return tool.finish(run_chosen(tool, name_of(chosen_command(app))));
}

}  // namespace
}  // namespace veltrancord::tool

int main(int argument_count, char** arguments) {
    try {
        return veltrancord::tool::run_tool(argument_count, arguments);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "veltrancordctl: %s\n", failure.what());
    } catch (...) {
        std::fputs("veltrancordctl: failed\n", stderr);
    }
    return veltrancord::tool::exit_failed;
}
