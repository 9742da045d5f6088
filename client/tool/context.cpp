#include "context.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "exit_status.h"
#include "pager.h"

namespace veltrancord::tool {

veltrancord_client& context::client() {
    client_.socket_path = socket_path.c_str();
    client_.timeout_ms =
        timeout_seconds < 0 ? -1 : static_cast<int32_t>(std::min(timeout_seconds, 2e6) * 1000);
    return client_;
}

void context::print_json(const json& value) {
    // Bytes that are no UTF-8 are shown as the replacement character rather than refused.
    print(value.dump(2, ' ', false, json::error_handler_t::replace));
    print("\n");
}

int context::finish(int status) {
    const bool written = no_pager ? write_whole(STDOUT_FILENO, output_) : show_paged(output_);
    output_.clear();
    return written || status != exit_done ? status : exit_failed;
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
        print(null_separated ? std::string_view("\0", 1) : std::string_view("\n"));
    }
}

bool context::colours() const {
    const char* no_color = std::getenv("NO_COLOR");
    return may_colour && (no_color == nullptr || *no_color == '\0') && isatty(STDOUT_FILENO) == 1;
}

std::string context::coloured(const char* sequence, std::string_view text) const {
    std::string result(text);
    return colours() ? "\033[" + std::string(sequence) + "m" + result + "\033[0m" : result;
}

int context::fail(std::string_view subject, int32_t result) {
    char reason[256];
    if (client_.error.code == result) {
        veltrancord_error_text(&client_, reason, sizeof reason);
    } else {
        std::snprintf(reason, sizeof reason, "%s", veltrancord_result_text(result));
    }
    const int status = exit_status_of(result);
    if (form == output_form::json) {
        const char* name = veltrancord_result_name(result);
        const json error = {{"error",
                             {{"subject", subject},
                              {"code", result},
                              {"name", name != nullptr ? name : "OTHER"},
                              {"reason", reason}}}};
        std::fprintf(stderr, "%s\n",
                     error.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
        return status;
    }
    std::fprintf(stderr, "veltrancordctl: %.*s: %s (%d)\n", static_cast<int>(subject.size()),
                 subject.data(), reason, result);
    return status;
}

int context::fail_with(int status, std::string_view subject, std::string_view reason) {
    std::fprintf(stderr, "veltrancordctl: %.*s: %.*s\n", static_cast<int>(subject.size()),
                 subject.data(), static_cast<int>(reason.size()), reason.data());
    return status;
}

void context::note(std::string_view text) {
    std::fprintf(stderr, "veltrancordctl: %.*s\n", static_cast<int>(text.size()), text.data());
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

}  // namespace veltrancord::tool
