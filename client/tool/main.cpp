// veltrancordctl: the configuration service from the command line.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "completion.h"
#include "exit_status.h"

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
    app.set_version_flag("--version", "veltrancordctl " VELTRANCORD_VERSION);
}

// Scripts ask for values by the hundred, each time by a program of its own, and to describe all the
// commands takes longer than to ask for a value.
bool is_read_command(std::string_view first_word) {
    return first_word == "get" || first_word == "ls" || first_word == "tree";
}

void add_other_commands(const subcommand& top, context& tool) {
    add_write_commands(top, tool);
    add_attribute_commands(top, tool);
    add_document_commands(top, tool);
    add_log_commands(top, tool);
    add_permit_commands(top, tool);
    add_session_commands(top, tool);
    add_exchange_commands(top, tool);
    add_difference_commands(top, tool);
    add_apply_commands(top, tool);
    add_edit_command(top, tool);
    add_watch_command(top, tool);
    add_check_command(top, tool);
    add_doctor_command(top, tool);
}

// The words behind the program's name. The parser takes "-0" for a number.
std::vector<std::string> words_of(int argument_count, char** arguments) {
    std::vector<std::string> words(arguments + 1, arguments + argument_count);
    const auto mark = std::find(words.begin(), words.end(), "--");
    std::replace(words.begin(), mark, std::string("-0"), std::string("--null"));
    return words;
}

// Says which command was used wrongly, and how.
int explain_usage(context& tool, const CLI::App& app, const CLI::ParseError& failure) {
    const CLI::App* command = &app;
    std::string name;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        name.append(name.empty() ? "" : " ").append(command->get_name());
    }
    std::string reason = failure.what();
    if (command->get_require_subcommand_min() > 0) {
        const std::vector<std::string> rest = app.remaining(true);
        reason =
            rest.empty() ? "a command is missing" : "there is no command \"" + rest.front() + "\"";
    }
    return tool.fail_with(
        exit_usage, name.empty() ? "usage" : name,
        reason + "; see veltrancordctl " + name + (name.empty() ? "" : " ") + "--help");
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
    }
    if (!words.empty() && words.front() == "complete") {
        const bool marked = words.size() > 1 && words[1] == "--";
        words.erase(words.begin(), words.begin() + (marked ? 2 : 1));
        return tool.finish(run_completion(app, tool, std::move(words)));
    }
    const bool wants_json = std::find(words.begin(), words.end(), "--json") != words.end();
    std::reverse(words.begin(), words.end());  // the parser takes them from the end
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& failure) {
        if (failure.get_exit_code() == 0) {
            return app.exit(failure);  // help was asked for
        }
        tool.form = wants_json ? output_form::json : tool.form;
        return explain_usage(tool, app, failure);
    }
    return tool.finish(tool.run());
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
