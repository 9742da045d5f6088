#include "context.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "exit_status.h"
#include "guard/policy_file.h"
#include "pager.h"
#include "schema/description_set.h"
#include "terminal_text.h"

namespace veltrancord::tool {

veltrancord_client& context::client() {
    if (client_.socket_path == nullptr) {
        detail("asking " + socket_path);
    }
    client_.socket_path = socket_path.c_str();
    client_.timeout_ms =
        timeout_seconds < 0 ? -1 : static_cast<int32_t>(std::min(timeout_seconds, 2e6) * 1000);
    return client_;
}

schema::description_set& context::descriptions() {
    if (descriptions_ == nullptr) {
        descriptions_ = std::make_shared<schema::description_set>(schema_directory);
    }
    return *descriptions_;
}

void context::print_json(const json& value) {
    // Bytes that are no UTF-8 are shown as the replacement character rather than refused.
    print(value.dump(2, ' ', false, json::error_handler_t::replace));
    print("\n");
}

bool context::print_for_programs(const json& value) {
    if (form == output_form::json) {
        print_json(value);
    } else if (form == output_form::shell) {
        print(shell_assignments(value, line_end()));
    }
    return form != output_form::text;
}

void context::end_line() {
    print(line_end());
}

std::string_view context::line_end() const {
    return null_separated ? std::string_view("\0", 1) : std::string_view("\n");
}

int context::finish(int status) {
    if (isatty(STDOUT_FILENO) == 1) {
        output_ = terminal_text(output_, locale_is_utf8());
    }
    const bool written = no_pager ? write_whole(STDOUT_FILENO, output_) : show_paged(output_);
    output_.clear();
    return written || status != exit_done ? status : exit_failed;
}

bool context::print_now(std::string_view text) {
    return write_whole(STDOUT_FILENO, isatty(STDOUT_FILENO) == 1
                                          ? terminal_text(text, locale_is_utf8())
                                          : std::string(text));
}

void context::print_settings(const setting_list& settings) {
    if (form == output_form::json) {
        json object = json::object();
        for (const setting& one : settings) {
            object[one.path] = shown_value(one, reveal);
        }
        print_json(object);
        return;
    }
    for (const setting& one : settings) {
        const std::string value = shown_value(one, reveal);
        if (form == output_form::shell) {
            print(shell_name(one.path));
            print("=");
            print(shell_quoted(value));
        } else {
            print(one.path);
            print("=");
            print(value);
        }
        end_line();
    }
}

bool context::colours() const {
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return may_colour && (no_color == nullptr || *no_color == '\0') && terminal != nullptr &&
           *terminal != '\0' && std::strcmp(terminal, "dumb") != 0 && isatty(STDOUT_FILENO) == 1;
}

std::string context::coloured(const char* sequence, std::string_view text) const {
    const std::string mark(colour_mark);
    const std::string result(text);
    return colours() ? mark + sequence + "m" + result + mark + "0m" : result;
}

namespace {

// What to do for somebody who is kept from connecting.
std::string who_may_connect(const std::string& path) {
    struct stat status {};
    std::string name = "veltrancord";
    if (stat(path.c_str(), &status) == 0) {
        const group* const found = getgrgid(status.st_gid);
        if (status.st_gid == 0 || (status.st_mode & S_IWGRP) == 0) {
            return "; only root may connect, as the mode of the socket says";
        }
        name = found != nullptr ? found->gr_name : std::to_string(status.st_gid);
    }
    return "; root may connect, and members of the group " + name + ": adduser USER " + name +
           ", from the next login on";
}

}  // namespace

std::string context::reason_of(int32_t result) {
    char reason[256];
    if (client_.error.code == result && result == VELTRANCORD_UNREACHABLE) {
        const int cause = client_.error.system_error;
        std::snprintf(reason, sizeof reason, "%s: %s: %s", veltrancord_result_text(result),
                      socket_path.c_str(), std::strerror(cause));
        return reason + (cause == EACCES ? who_may_connect(socket_path) : std::string());
    }
    if (client_.error.code != result) {
        return veltrancord_result_text(result);
    }
    client_.error.subject[0] = '\0';  // the line names it already
    veltrancord_error_text(&client_, reason, sizeof reason);
    return reason;
}

namespace {

// Any command may be denied where there is an access file, whatever else a denial of it means.
std::string where_to_look(int32_t result) {
    struct stat status {};
    return result == VELTRANCORD_DENIED && stat(access_file_path(), &status) == 0
               ? "; see veltrancordctl access explain"
               : "";
}

const char* result_name(int32_t result) {
    const char* const name = veltrancord_result_name(result);
    return name != nullptr ? name : "OTHER";
}

}  // namespace

int context::fail(std::string_view subject, int32_t result) {
    return print_failure(exit_status_of(result), subject, result, result_name(result),
                         reason_of(result) + where_to_look(result));
}

int context::fail_change(std::string_view subject, int32_t result) {
    const bool sent = result == VELTRANCORD_TIMED_OUT || result == VELTRANCORD_NO_REPLY ||
                      result == VELTRANCORD_BROKEN_REPLY;
    if (!sent) {
        return fail(subject, result);
    }
    return print_failure(exit_unknown, subject, result, result_name(result),
                         reason_of(result) + "; unknown whether it was applied");
}

int context::fail_with(int status, std::string_view subject, std::string_view reason) {
    return print_failure(status, subject, nullptr, exit_status_name(status), reason);
}

int context::fail_with(int status, std::string_view subject, std::string_view reason,
                       const json& details) {
    return print_failure(status, subject, nullptr, exit_status_name(status), reason, &details);
}

int context::fail_file(std::string_view name) {
    return fail_with(exit_failed, name, std::strerror(errno));
}

int context::print_failure(int status, std::string_view subject, const json& code, const char* name,
                           std::string_view reason, const json* details) const {
    std::string line;
    if (form == output_form::json) {
        json error = {{"subject", subject}, {"code", code}, {"name", name}, {"reason", reason}};
        if (details != nullptr) {
            error.update(*details);
        }
        line = one_line({{"error", error}});
    } else {
        line.append("veltrancordctl: ").append(subject).append(": ").append(reason);
        if (!code.is_null()) {
            line.append(" (").append(code.dump()).append(")");
        }
    }
    print_to_error(line);
    return status;
}

void context::note(std::string_view text) {
    if (!g_quiet) {
        print_to_error("veltrancordctl: " + std::string(text));
    }
}

void context::detail(std::string_view text) const {
    if (verbose) {
        note(text);
    }
}

std::string shell_name(std::string_view path) {
    std::string name(path);
    for (char& letter : name) {
        if (std::isalnum(static_cast<unsigned char>(letter)) == 0) {
            letter = '_';
        }
    }
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name.front())) != 0) {
        name.insert(name.begin(), '_');
    }
    return name;
}

std::string one_line(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string shell_quoted(std::string_view text) {
    std::string quoted = "'";
    for (const char letter : text) {
        if (letter == '\'') {
            quoted += "'\\''";
        } else {
            quoted += letter;
        }
    }
    quoted += '\'';
    return quoted;
}

namespace {

std::string shell_value(const json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_null()) {
        return {};
    }
    if (!value.is_array()) {
        return value.dump();
    }
    std::string joined;
    for (const json& one : value) {
        joined.append(joined.empty() ? "" : ",").append(shell_value(one));
    }
    return joined;
}

bool is_list_of_objects(const json& value) {
    return value.is_array() && (value.empty() || value.front().is_object());
}

}  // namespace

std::string shell_assignments(const json& value, std::string_view end) {
    std::string lines;
    if (value.is_array()) {
        for (const json& one : value) {
            const char* separator = "";
            for (const auto& [name, member] : one.items()) {
                lines.append(separator).append(name).append("=");
                lines.append(shell_quoted(shell_value(member)));
                separator = " ";
            }
            lines.append(end);
        }
        return lines;
    }
    for (const auto& [name, member] : value.items()) {
        if (is_list_of_objects(member)) {
            lines.append(shell_assignments(member, end));
        } else {
            lines.append(name).append("=").append(shell_quoted(shell_value(member))).append(end);
        }
    }
    return lines;
}

}  // namespace veltrancord::tool
