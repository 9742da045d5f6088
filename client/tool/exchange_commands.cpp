// raw, ping, wait.
#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "change_record.h"
#include "commands.h"
#include "exit_status.h"
#include "question.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

struct raw_options {
    std::string command;
    std::string argument;
};

bool is_one_of(const std::string& command, std::initializer_list<const char*> names) {
    return std::find(names.begin(), names.end(), command) != names.end();
}

// Whether the command changes nothing, as far as the tool knows it.
bool is_read(const std::string& command) {
    return is_one_of(
        command,
        {"read", "readAndFilter", "readwithlevel", "readvalue", "readattr", "readsingleattr",
         "readlog", "geteventcount", "maxlogcount", "isPermitAllow", "isPermitAllowByUser",
         "getPermitValue", "getGroupName", "listPermits", "GetCGIPermitFilter", "CheckSession"});
}

// Whether a word of the command line gives away what lets somebody in.
bool holds_secret(const raw_options& options) {
    if (is_one_of(options.command, {"SetSession", "CheckSession"})) {
        return true;
    }
    const setting_list lines = parse_settings(options.argument);
    return is_one_of(options.command, {"write", "writedbmem"}) &&
           std::any_of(lines.begin(), lines.end(),
                       [](const setting& one) { return is_secret_path(one.path); });
}

// A reply of "key=value" lines has its secrets masked, with what a secret holds behind a line feed;
// a lone value is one where its path is asked.
std::string masked(const raw_options& options, const std::string& text) {
    if (options.command == "readvalue" && is_secret_path(options.argument)) {
        return std::string(masked_value);
    }
    std::string result;
    std::size_t start = 0;
    bool in_secret = false;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos && in_secret) {
            continue;
        }
        in_secret = equals != std::string::npos && is_secret_path(line.substr(0, equals));
        result += in_secret ? line.substr(0, equals + 1) + std::string(masked_value) : line;
        result += end < text.size() ? "\n" : "";
    }
    return result;
}

// What the command may change, as far as the tool knows it.
change_scope scope_of(const raw_options& options) {
    change_scope scope;
    if (is_one_of(options.command, {"write", "writedbmem"})) {
        scope.settings = paths_of(parse_settings(options.argument));
        scope.memory = options.command == "writedbmem";
    } else if (options.command == "writeattr") {
        scope.attributes = paths_of(parse_settings(options.argument));
    } else if (options.command == "remove") {
        scope.places = {options.argument.substr(0, options.argument.find('\n'))};
    } else if (is_one_of(options.command, {"upload", "restore", "syncxml"})) {
        scope.places = {"*"};
    }
    return scope;
}

int print_raw(context& tool, const raw_options& options, const owned_reply& reply, int32_t result) {
    const std::string text = tool.reveal ? reply.text() : masked(options, reply.text());
    if (tool.print_for_programs({{"result", result}, {"text", text}})) {
        return exit_done;
    }
    if (reply.text().empty()) {
        tool.print(std::to_string(result) + "\n");
    } else {
        tool.print(text);
        if (text.empty() || text.back() != '\n') {
            tool.print("\n");
        }
    }
    return exit_done;
}

int run_raw(context& tool, raw_options options) {
    if (options.argument == "-") {
        options.argument.clear();
        if (!read_input("-", options.argument)) {
            return tool.fail_file("-");
        }
    } else if (holds_secret(options)) {
        return tool.fail_with(exit_refused, options.command,
                              "a secret is never given on the command line: use \"-\" in place of "
                              "the argument and standard input");
    }
    if (is_one_of(options.command, {"remove", "upload", "restore", "syncxml", "cleanlog"})) {
        int status = may_destroy(tool, options.command + " " + options.argument);
        if (status == exit_done) {
            status = back_up_first(tool);
        }
        if (status != exit_done) {
            return status;
        }
    }
    return recorded(tool, scope_of(options), [&] {
        owned_reply reply;
        const int32_t result =
            veltrancord_exchange(&tool.client(), options.command.c_str(), options.argument.data(),
                                 options.argument.size(), reply.get());
        if (result < 0) {
            return is_read(options.command) ? tool.fail(options.command, result)
                                            : tool.fail_change(options.command, result);
        }
        return print_raw(tool, options, reply, result);
    });
}

int run_ping(context& tool) {
    const auto start = std::chrono::steady_clock::now();
    const int32_t result = veltrancord_ping(&tool.client());
    if (result < 0) {
        return tool.fail("ping", result);
    }
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    if (!tool.print_for_programs({{"alive", true}, {"microseconds", took.count()}})) {
        tool.print("alive, " + std::to_string(took.count()) + " microseconds\n");
    }
    return exit_done;
}

int run_wait(context& tool) {
    const int32_t result = veltrancord_wait(&tool.client());
    return result < 0 ? tool.fail("wait", result) : exit_done;
}

}  // namespace

void add_exchange_commands(subcommand app, context& tool) {
    const auto raw = std::make_shared<raw_options>();
    subcommand command = app.add_subcommand("raw", "send any command and print what comes back");
    command.add_option("COMMAND", raw->command, "its name").required();
    command.add_option("ARGUMENT", raw->argument, "its argument; \"-\": standard input, binary");
    command.callback([&tool, raw] { tool.run = [&tool, raw] { return run_raw(tool, *raw); }; });

    command = app.add_subcommand("ping", "tell whether the service answers, and how fast");
    command.callback([&tool] { tool.run = [&tool] { return run_ping(tool); }; });

    command = app.add_subcommand("wait", "wait until the service answers, at most --timeout");
    command.callback([&tool] { tool.run = [&tool] { return run_wait(tool); }; });
}

}  // namespace veltrancord::tool
