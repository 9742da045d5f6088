// set, unset.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "change_record.h"
#include "commands.h"
#include "dry_run.h"
#include "exit_status.h"
#include "question.h"
#include "service.h"
#include "setting_writing.h"

namespace veltrancord::tool {
namespace {

struct set_options {
    std::vector<std::string> words;
    std::string file;
    writing_options how;
};

// "Mtu = 1500" would set "Mtu " to " 1500".
int refuse_blanks(context& tool, const setting& one) {
    if (!has_blank_at_end(one.path) && !one.value.starts_with(' ') &&
        !one.value.starts_with('\t')) {
        return exit_done;
    }
    return tool.fail_with(exit_refused, one.path,
                          "there are blanks around its \"=\"; nothing was written");
}

int read_lines(context& tool, const std::string& file, setting_list& settings) {
    std::string text;
    if (!read_input(file, text)) {
        return tool.fail_file(file);
    }
    std::size_t bad = 0;
    if (!parse_lines(text, tool.null_separated, settings, bad)) {
        return tool.fail_with(exit_refused, file, "line " + std::to_string(bad) + " has no '='");
    }
    for (const setting& one : settings) {
        const int status = refuse_blanks(tool, one);
        if (status != exit_done) {
            return status;
        }
    }
    return exit_done;
}

// A secret on a command line would be seen by everybody who lists the processes.
int take_value(context& tool, setting one, const std::string& file, setting_list& settings) {
    if (is_secret_path(one.path) && one.value != "-") {
        return tool.fail_with(exit_refused, one.path,
                              "a secret is never given on the command line: use \"-\" in its place "
                              "and standard input");
    }
    if (one.value == "-") {
        one.value.clear();
        if (!read_secret(one.path, file, one.value)) {
            return errno == ECANCELED ? tool.fail_with(exit_cancelled, file, std::strerror(errno))
                                      : tool.fail_file(file);
        }
        if (one.value.find('\0') != std::string::npos) {
            return tool.fail_with(exit_refused, one.path, "a value cannot hold a NUL byte");
        }
    }
    settings.push_back(std::move(one));
    return exit_done;
}

int collect(context& tool, const set_options& options, setting_list& settings) {
    const std::vector<std::string>& words = options.words;
    const std::string file = options.file.empty() ? "-" : options.file;
    if (words.empty() || words == std::vector<std::string>{"-"}) {
        return read_lines(tool, file, settings);
    }
    if (words.size() == 2 && words[0].find('=') == std::string::npos) {
        return take_value(tool, {words[0], words[1]}, file, settings);
    }
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            return tool.fail_with(exit_usage, word, "is neither PATH VALUE nor PATH=VALUE");
        }
        setting one{word.substr(0, equals), word.substr(equals + 1)};
        int status = refuse_blanks(tool, one);
        if (status == exit_done) {
            status = take_value(tool, std::move(one), file, settings);
        }
        if (status != exit_done) {
            return status;
        }
    }
    return exit_done;
}

// Standard input that is no terminal is one value: a second one would be empty.
bool wants_input_twice(const set_options& options) {
    const auto wants = [](const std::string& word) {
        return word == "-" || (word.size() > 1 && word.compare(word.size() - 2, 2, "=-") == 0);
    };
    return options.file.empty() && isatty(STDIN_FILENO) != 1 &&
           std::count_if(options.words.begin(), options.words.end(), wants) > 1;
}

int run_set(context& tool, const set_options& options) {
    if (options.how.memory_only && !tool.root.empty()) {
        return tool.fail_with(exit_usage, "--memory", "there is no service to keep it with --root");
    }
    if (wants_input_twice(options)) {
        return tool.fail_with(exit_usage, "set", "standard input can be one value only");
    }
    setting_list settings;
    const int status = collect(tool, options, settings);
    if (status != exit_done) {
        return status;
    }
    if (settings.empty()) {
        return tool.fail_with(exit_usage, "set", "no settings");
    }
    return write_checked(tool, settings, options.how, options.file);
}

int run_unset(context& tool, const std::string& path) {
    if (tool.dry_run) {
        return show_removal(tool, path);
    }
    int status = may_destroy(tool, "remove " + path);
    if (status == exit_done) {
        status = back_up_first(tool);
    }
    if (status != exit_done) {
        return status;
    }
    change_scope scope;
    scope.places = {path};
    status = recorded(tool, scope, [&] {
        const int32_t result = veltrancord_remove(&tool.client(), path.c_str());
        return result < 0 ? tool.fail_change(path, result) : static_cast<int>(exit_done);
    });
    if (status == exit_done && path.find('.') == std::string::npos) {
        context::note(path + " stays as a document without settings; unset '" + path +
                      ".*' removes its file, too");
    }
    return status;
}

}  // namespace

void add_write_commands(subcommand app, context& tool) {
    const auto set = std::make_shared<set_options>();
    subcommand command = app.add_subcommand(
        "set", "write settings with one request: PATH VALUE, PATH=VALUE ..., or lines from \"-\"");
    command.add_option("SETTING", set->words, "what to write");
    command.add_option("--file", set->file, "read the lines, or a secret, from this file");
    add_writing_options(command, tool, set->how);
    command.callback([&tool, set] { tool.run = [&tool, set] { return run_set(tool, *set); }; });

    const auto path = std::make_shared<std::string>();
    command = app.add_subcommand(
        "unset", "remove an element, a whole document (Document.*) or everything (.*)");
    command.add_option("PATH", *path, "what to remove").required();
    add_dry_run(command, tool);
    command.callback(
        [&tool, path] { tool.run = [&tool, path] { return run_unset(tool, *path); }; });
}

}  // namespace veltrancord::tool
