// can, permits, group, filter.
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "commands.h"
#include "dry_run.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

struct can_options {
    std::string who;
    std::string what;
    std::optional<std::string> argument;
    bool is_group = false;
};

// Prints a decision; a denial is an answer, but has its own exit status.
int print_decision(context& tool, const std::string& subject, int32_t result) {
    if (result < 0 && result != VELTRANCORD_DENIED) {
        return tool.fail(subject, result);
    }
    const bool allowed = result >= 0;
    if (!tool.print_for_programs({{"allowed", allowed}})) {
        tool.print(allowed ? "allowed" : "denied");
        tool.end_line();
    }
    return allowed ? exit_done : exit_denied;
}

int run_can(context& tool, const can_options& options) {
    const char* argument = options.argument ? options.argument->c_str() : nullptr;
    veltrancord_client& client = tool.client();
    const int32_t result =
        options.is_group
            ? veltrancord_group_may(&client, options.who.c_str(), options.what.c_str(), argument)
            : veltrancord_user_may(&client, options.who.c_str(), options.what.c_str(), argument);
    return print_decision(tool, options.who + " " + options.what, result);
}

int run_filter(context& tool, const can_options& options) {
    const char* parameters = options.argument ? options.argument->c_str() : nullptr;
    const int32_t result = veltrancord_user_may_cgi(&tool.client(), options.who.c_str(),
                                                    options.what.c_str(), parameters);
    return print_decision(tool, options.who + " " + options.what, result);
}

int print_text(context& tool, const std::string& subject, const char* key, int32_t result,
               const char* text) {
    if (result < 0) {
        return tool.fail(subject, result);
    }
    if (tool.form != output_form::text) {
        tool.print_settings({{key, text}});
    } else {
        tool.print(text);
        tool.end_line();
    }
    return exit_done;
}

int run_group(context& tool, const std::string& user) {
    std::array<char, 4096> group{};
    const int32_t result =
        veltrancord_user_group(&tool.client(), user.c_str(), group.data(), group.size());
    return print_text(tool, user, "group", result, group.data());
}

int run_value(context& tool, const can_options& options) {
    std::array<char, 65536> value{};
    const int32_t result = veltrancord_permit_value(
        &tool.client(), options.who.c_str(), options.what.c_str(), value.data(), value.size());
    return print_text(tool, options.who + " " + options.what, "value", result, value.data());
}

struct permit_line {
    std::string number;
    std::string name;
    std::string type;
    std::string value;
};

// "permit3=Name&type=Switch&value=ON" in its parts.
permit_line split_permit(const setting& line) {
    const std::size_t value_at = line.value.rfind("&value=");
    const std::size_t type_at = line.value.rfind("&type=", value_at);
    if (value_at == std::string::npos || type_at == std::string::npos) {
        return {line.path, line.value, "", ""};
    }
    constexpr std::size_t prefix = sizeof "permit" - 1;
    return {line.path.substr(prefix), line.value.substr(0, type_at),
            line.value.substr(type_at + 6, value_at - type_at - 6),
            line.value.substr(value_at + 7)};
}

int run_permits(context& tool) {
    owned_reply reply;
    const int32_t result = veltrancord_list_permits(&tool.client(), reply.get());
    if (result < 0) {
        return tool.fail("permits", result);
    }
    const setting_list lines = parse_settings(reply.text());
    json list = json::array();
    for (const setting& line : lines) {
        const permit_line permit = split_permit(line);
        list.push_back({{"number", permit.number},
                        {"name", permit.name},
                        {"type", permit.type},
                        {"value", permit.value}});
    }
    if (!tool.print_for_programs(list)) {
        for (const setting& line : lines) {
            const permit_line permit = split_permit(line);
            tool.print(permit.number + "\t" + permit.name + "\t" + permit.type + "\t" +
                       permit.value);
            tool.end_line();
        }
    }
    return lines.empty() ? tool.fail_with(exit_empty, "permits", "empty") : exit_done;
}

int run_sync(context& tool) {
    if (tool.dry_run) {
        const int32_t result = look_for(tool, "Account.Permission");
        if (result < 0) {
            return tool.fail("Account.Permission", result);
        }
        context::note("what Account.Permission holds would become effective");
        return end_dry_run();
    }
    const int32_t result = veltrancord_sync_permits(&tool.client());
    return result < 0 ? tool.fail("permits", result) : exit_done;
}

}  // namespace

void add_permit_commands(subcommand app, context& tool) {
    const auto can = std::make_shared<can_options>();
    subcommand command = app.add_subcommand("can", "whether a user (a group) may use a function");
    command.add_option("WHO", can->who, "a user; with --group a group").required();
    command.add_option("PERMIT", can->what, "the permit's name").required();
    command.add_option("CHANNEL", can->argument, "for permits that have channels");
    command.add_flag("--group", can->is_group, "WHO is a group");
    command.callback([&tool, can] { tool.run = [&tool, can] { return run_can(tool, *can); }; });

    subcommand permits = app.add_subcommand("permits", "list the permits");
    permits.fallthrough();
    permits.callback([&tool, permits] {
        if (!permits.subcommand_was_given()) {
            tool.run = [&tool] { return run_permits(tool); };
        }
    });
    command = permits.add_subcommand("sync", "make changed permits and groups effective");
    command.fallthrough();
    add_dry_run(command, tool);
    command.callback([&tool] { tool.run = [&tool] { return run_sync(tool); }; });
    const auto value = std::make_shared<can_options>();
    command = permits.add_subcommand("value", "print what a group holds for a permit");
    command.fallthrough();
    command.add_option("GROUP", value->who, "the group").required();
    command.add_option("PERMIT", value->what, "the permit's name").required();
    command.callback(
        [&tool, value] { tool.run = [&tool, value] { return run_value(tool, *value); }; });

    const auto user = std::make_shared<std::string>();
    command = app.add_subcommand("group", "print the group of a user");
    command.add_option("USER", *user, "the user").required();
    command.callback(
        [&tool, user] { tool.run = [&tool, user] { return run_group(tool, *user); }; });

    const auto filter = std::make_shared<can_options>();
    command = app.add_subcommand("filter", "whether a user may issue a CGI command");
    command.add_option("USER", filter->who, "the user").required();
    command.add_option("COMMAND", filter->what, "the CGI command").required();
    command.add_option("PARAMETERS", filter->argument, "its parameters");
    command.callback(
        [&tool, filter] { tool.run = [&tool, filter] { return run_filter(tool, *filter); }; });
}

}  // namespace veltrancord::tool
