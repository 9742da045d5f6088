#include "change_record.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "difference.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

constexpr std::size_t longest_command = 500;

// The user's name, and whom root works for.
std::string user_name() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> buffer{};
    (void)getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    std::string name = found != nullptr ? found->pw_name : std::to_string(getuid());
    const char* const sudo = std::getenv("SUDO_USER");
    if (getuid() == 0 && sudo != nullptr && *sudo != '\0') {
        name += " (" + std::string(sudo) + ")";
    }
    return name;
}

int32_t read_scope(context& tool, const change_scope& scope, place_state& state) {
    int32_t result = read_named(tool, scope.settings, state);
    if (result >= 0) {
        result = read_named_attributes(tool, scope.attributes, state);
    }
    return result >= 0 ? read_places(tool, scope.places, state) : result;
}

void append_differences(const std::map<std::string, std::string>& before,
                        const std::map<std::string, std::string>& after, bool attribute,
                        std::vector<recorded_difference>& list) {
    for (const setting_change& change : compare(before, after)) {
        const bool secret = is_secret_path(change.path);
        const auto side = [&](const std::string* value) -> std::optional<std::string> {
            if (value == nullptr) {
                return std::nullopt;
            }
            return secret ? std::string(masked_value) : *value;
        };
        const bool lost =
            change.before != nullptr && (secret || change.before->find('\n') != std::string::npos);
        list.push_back({change.path, attribute, side(change.before), side(change.after), lost, {}});
    }
}

}  // namespace

std::vector<std::string> paths_of(const setting_list& settings) {
    std::vector<std::string> paths;
    paths.reserve(settings.size());
    for (const setting& one : settings) {
        paths.push_back(one.path);
    }
    return paths;
}

std::vector<recorded_difference> differences(const place_state& before, const place_state& after,
                                             const std::map<std::string, std::string>& made) {
    std::vector<recorded_difference> list;
    append_differences(before.settings, after.settings, false, list);
    append_differences(before.attributes, after.attributes, true, list);
    for (recorded_difference& one : list) {
        const auto found = made.find(one.path);
        if (!one.attribute && !one.before && found != made.end()) {
            one.made = found->second;
        }
    }
    return list;
}

bool record(history_entry entry, context& tool) {
    if (entry.differences.empty()) {
        return true;
    }
    entry.time = std::time(nullptr);
    if (!append_to_history(entry)) {
        return false;
    }
    tool.detail("change " + std::to_string(entry.number) + " of the history:\n" +
                text_of(tool, entry.differences));
    return true;
}

int recorded(context& tool, const change_scope& scope, const std::function<int()>& change) {
    const bool nothing = scope.settings.empty() && scope.attributes.empty() && scope.places.empty();
    if (nothing || !tool.root.empty()) {
        return change();
    }
    const owned_fd lock = lock_changes(change_lock_mode::shared);
    place_state before;
    const bool known = read_scope(tool, scope, before) >= 0;
    std::map<std::string, std::string> made;
    for (const std::string& path : scope.settings) {
        if (known && before.settings.count(path) == 0) {
            made[path] = first_missing(tool, path);
        }
    }
    const int status = change();
    place_state after;
    const veltrancord_error error = tool.client().error;
    if (known && read_scope(tool, scope, after) >= 0) {
        history_entry entry;
        entry.user = user_name();
        entry.command = tool.command_line.substr(0, longest_command);
        entry.memory = scope.memory;
        entry.forced = tool.forced;
        entry.undoes = scope.undoes;
        entry.differences = differences(before, after, made);
        if (!record(std::move(entry), tool)) {
            context::note(std::string("the change is not in the history: ") + std::strerror(errno));
        }
    }
    tool.client().error = error;
    return status;
}

std::string text_of(const context& tool, const std::vector<recorded_difference>& differences) {
    std::string text;
    for (const recorded_difference& one : differences) {
        const auto side = [&](const char* sign, const char* colour,
                              const std::optional<std::string>& value) {
            if (value) {
                std::string line = sign;
                line.append(one.attribute ? "attr " : "").append(one.path).append("=");
                text += tool.coloured(colour, line + *value) + "\n";
            }
        };
        side("-", "31", one.before);
        side("+", "32", one.after);
    }
    return text;
}

}  // namespace veltrancord::tool
