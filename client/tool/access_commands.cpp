// access check, access explain, access draft.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "access_check.h"
#include "access_draft.h"
#include "commands.h"
#include "exit_status.h"
#include "guard/classes.h"
#include "guard/needs.h"
#include "guard/policy_file.h"
#include "logged_lines.h"
#include "running_service.h"

namespace veltrancord::tool {
namespace {

struct explain_options {
    std::string who;
    std::string command;
    std::string argument;
    std::string file = access_file_path();
    bool is_group = false;
};

uid_t service_user(const context& tool) {
    return user_of_process(find_service(tool).supervisor);
}

int run_check(context& tool, const std::string& file) {
    std::vector<access_finding> findings;
    if (!check_access_file(file, service_user(tool), findings)) {
        return tool.fail_file(file);
    }
    json list = json::array();
    for (const access_finding& one : findings) {
        list.push_back({{"file", file}, {"line", one.line}, {"text", one.text}});
    }
    if (!tool.print_for_programs(list)) {
        for (const access_finding& one : findings) {
            tool.print(file + (one.line > 0 ? ":" + std::to_string(one.line) : "") + ": ");
            tool.print(tool.coloured("33", one.text));
            tool.end_line();
        }
    }
    return findings.empty() ? exit_done : exit_differs;
}

// Who asks, with the room that his groups take.
struct asker {
    uid_t user = no_id;
    gid_t group = no_id;
    std::vector<gid_t> groups;

    [[nodiscard]] peer_identity identity() const { return {user, group, groups}; }
};

std::optional<uint32_t> number_of(std::string_view word) {
    uint32_t number = 0;
    const auto read = std::from_chars(word.data(), word.data() + word.size(), number);
    return read.ec == std::errc() && read.ptr == word.data() + word.size() && !word.empty()
               ? std::optional(number)
               : std::nullopt;
}

// A user as the system knows him, with all of his groups.
bool find_asking_user(const std::string& name, asker& found) {
    const std::optional<uint32_t> number = number_of(name);
    const passwd* const entry = number ? getpwuid(*number) : getpwnam(name.c_str());
    if (entry == nullptr) {
        found.user = number.value_or(no_id);
        return number.has_value();
    }
    found.user = entry->pw_uid;
    found.group = entry->pw_gid;
    constexpr int most_groups = 65536;  // as the kernel bounds them
    int count = most_groups;
    found.groups.resize(most_groups);
    (void)getgrouplist(entry->pw_name, entry->pw_gid, found.groups.data(), &count);
    found.groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return true;
}

// Whoever is in the group and nothing else that a rule names.
bool find_asking_group(const std::string& name, asker& found) {
    const std::optional<uint32_t> number = number_of(name);
    const group* const entry = number ? nullptr : getgrnam(name.c_str());
    if (!number && entry == nullptr) {
        return false;
    }
    found.group = number ? *number : entry->gr_gid;
    return true;
}

// Return: false where there is no such user or group. "any" is somebody whom no rule names.
bool find_asker(const explain_options& options, asker& found) {
    if (options.is_group) {
        return find_asking_group(options.who, found);
    }
    return options.who == "any" || find_asking_user(options.who, found);
}

// The line of that number, from 1, without its comment and the blanks at its ends.
std::string rule_text(const std::string& text, std::size_t number) {
    std::size_t begin = 0;
    for (; number > 1; --number) {
        begin = text.find('\n', begin) + 1;
    }
    std::string line = text.substr(begin, text.find('\n', begin) - begin);
    line.erase(std::min(line.find('#'), line.size()));
    line.erase(line.find_last_not_of(" \t") + 1);
    return line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
}

// What a request needs, and what the policy says to it.
class explanation {
  public:
    explanation(const access_policy& policy, const std::string& text, const asker& peer)
        : policy_(policy), text_(text), peer_(peer) {}

    // One pair that the request needs.
    void add(const access_need& need) { add_to(needs_, need, std::string(need.document)); }

    // The same for whichever document there is.
    void add_for_every_document(command_class which) { add_every(needs_, which); }

    // Whether the secrets of what is read are shown; that refuses nothing.
    void add_secrets(std::string_view document, bool every) {
        if (every) {
            add_every(secrets_, command_class::secrets);
        } else {
            add_to(secrets_, {command_class::secrets, document}, std::string(document));
        }
    }

    [[nodiscard]] bool allowed() const {
        return std::all_of(needs_.begin(), needs_.end(),
                           [](const json& one) { return one["allowed"].get<bool>(); });
    }

    [[nodiscard]] json as_json() const {
        return {{"allowed", allowed()}, {"needs", needs_}, {"secrets", secrets_}};
    }

    void print(context& tool) const {
        for (const json& one : needs_) {
            tool.print(line_of(one, "allowed", "refused"));
            tool.end_line();
        }
        for (const json& one : secrets_) {
            tool.print(line_of(one, "shown", "empty"));
            tool.end_line();
        }
    }

  private:
    void add_every(json& list, command_class which) {
        for (const std::string& document : told_documents(policy_)) {
            if (!document.empty()) {
                add_to(list, {which, document}, shown_document(policy_, document));
            }
        }
    }

    void add_to(json& list, const access_need& need, const std::string& shown) {
        const access_decision decision = decide(policy_, peer_.identity(), need);
        const bool named = decision.line > 0;
        list.push_back({{"class", class_name(need.which)},
                        {"document", shown.empty() ? json(nullptr) : json(shown)},
                        {"allowed", decision.allowed},
                        {"line", named ? json(decision.line) : json(nullptr)},
                        {"rule", named ? json(rule_text(text_, decision.line)) : json(nullptr)}});
    }

    static std::string line_of(const json& one, const char* yes, const char* no) {
        const json& document = one["document"];
        std::string line = one["allowed"].get<bool>() ? yes : no;
        line += "  " + one["class"].get<std::string>();
        line += document.is_null() ? "" : " " + document.get<std::string>();
        line += one["line"].is_null()
                    ? "  no rule"
                    : "  line " + one["line"].dump() + ": " + one["rule"].get<std::string>();
        return line;
    }

    const access_policy& policy_;
    const std::string& text_;
    const asker& peer_;
    json needs_ = json::array();
    json secrets_ = json::array();
};

// Whether the request touches whichever documents there are, or those of a file: which these are is
// only known where it is carried out. So is one that is asked about without an argument.
bool touches_every_document(const command_traits& command, std::string_view argument) {
    if (argument.empty() && has_documents(command.which)) {
        return true;
    }
    switch (command.argument) {
        case argument_kind::tree:
            return argument == "*";
        case argument_kind::tree_with_level:
            return argument.starts_with("*&");
        case argument_kind::removal:
            return argument == ".*";
        case argument_kind::memory_changes:
        case argument_kind::file_to_read:
        case argument_kind::file_to_read_cut:
        case argument_kind::file_to_write:
            return true;
        default:
            return false;
    }
}

// A path does where the request would have lines, and where a level follows.
std::string argument_for(const command_traits& command, const std::string& argument) {
    if (argument.empty()) {
        return argument;
    }
    const bool lines = command.argument == argument_kind::lines ||
                       command.argument == argument_kind::attribute_lines;
    if (lines && argument.find('=') == std::string::npos) {
        return argument + "=";
    }
    return command.argument == argument_kind::tree_with_level &&
                   argument.find('&') == std::string::npos
               ? argument + "&0"
               : argument;
}

// Adds what the request needs. Files of root and of the service's own user are not looked into, so
// these need all that a file may hold.
void add_needs(const command_traits& command, const std::string& argument, bool privileged,
               explanation& answer) {
    const bool every = touches_every_document(command, argument);
    const bool reads_file = command.argument == argument_kind::file_to_read ||
                            command.argument == argument_kind::file_to_read_cut;
    if (privileged && reads_file) {
        answer.add({command.which, {}});
        answer.add({command_class::admin, {}});
        return;
    }
    if (every) {
        answer.add_for_every_document(command.which);
    }
    if (command.argument == argument_kind::file_to_write) {
        answer.add_for_every_document(command_class::secrets);
    }
    (void)each_need(command, argument, [&](const access_need& need) {
        if (!every) {
            answer.add(need);
        }
        if (command.which == command_class::read) {
            answer.add_secrets(need.document, every);
        }
        return true;
    });
}

int run_explain(context& tool, const explain_options& options) {
    const command_traits* const command = traits_of(options.command);
    if (command == nullptr) {
        return tool.fail_with(exit_not_found, options.command, "is no command of the service");
    }
    std::string text;
    parsed_policy parsed;
    if (!parse_access_file(options.file, parsed, text)) {
        return tool.fail_file(options.file);
    }
    if (!parsed.mistakes.empty()) {
        return tool.fail_with(exit_refused, options.file,
                              "has mistakes; see veltrancordctl access check");
    }
    asker peer;
    if (!find_asker(options, peer)) {
        return tool.fail_with(exit_not_found, options.who,
                              options.is_group ? "is no group" : "is no user");
    }
    const std::string argument = argument_for(*command, options.argument);
    explanation answer(parsed.policy, text, peer);
    const bool privileged = peer.user == 0 || peer.user == service_user(tool);
    add_needs(*command, argument, privileged, answer);
    if (!tool.print_for_programs(answer.as_json())) {
        answer.print(tool);
    }
    if (command->which == command_class::files && !privileged) {
        context::note(parsed.policy.directories.empty()
                          ? "there is no directory of files-below, so every file is refused"
                          : "only of files below the directories of files-below");
    }
    if (parsed.policy.permissive) {
        context::note("the mode is permissive: nothing is refused yet");
    }
    return answer.allowed() ? exit_done : exit_denied;
}

int run_draft(context& tool, const std::string& file) {
    access_draft draft;
    const int status = for_each_logged_line(tool, file, said_by::message,
                                            [&draft](const logged_line& line) { draft.add(line); });
    if (status != exit_done) {
        return status;
    }
    if (draft.left_out() > 0) {
        context::note(std::to_string(draft.left_out()) +
                      " lines name what is no document, and are left out");
    }
    if (draft.empty()) {
        return tool.fail_with(exit_empty, "access draft",
                              "nothing would have been refused, or not in permissive mode");
    }
    const std::string text = draft.text();
    if (!tool.print_for_programs({{"text", text}})) {
        tool.print(text);
    }
    return exit_done;
}

}  // namespace

void add_access_commands(subcommand app, context& tool) {
    subcommand access = app.add_subcommand("access", "the file that says who may ask what");
    access.require_subcommand(1);
    access.fallthrough();

    const auto checked = std::make_shared<std::string>(access_file_path());
    subcommand command = access.add_subcommand("check", "tell what is wrong with it");
    command.fallthrough();
    command.add_option("FILE", *checked, "the file; the service's own if not given");
    command.callback(
        [&tool, checked] { tool.run = [&tool, checked] { return run_check(tool, *checked); }; });

    const auto explain = std::make_shared<explain_options>();
    command = access.add_subcommand("explain", "tell which rule decides what a request needs");
    command.fallthrough();
    command.add_option("WHO", explain->who, "a user; \"any\": one whom no rule names").required();
    command.add_option("COMMAND", explain->command, "of the protocol, as of \"raw\"").required();
    command.add_option("ARGUMENT", explain->argument, "its argument; a path is enough");
    command.add_flag("--group", explain->is_group, "WHO is a group");
    command.add_option("--file", explain->file, "the file; the service's own if not given");
    command.callback(
        [&tool, explain] { tool.run = [&tool, explain] { return run_explain(tool, *explain); }; });

    const auto log = std::make_shared<std::string>();
    command = access.add_subcommand("draft", "make rules of what permissive mode has told");
    command.fallthrough();
    command.add_option("--file", *log, "this log; journald's if not given");
    command.callback([&tool, log] { tool.run = [&tool, log] { return run_draft(tool, *log); }; });
}

}  // namespace veltrancord::tool
