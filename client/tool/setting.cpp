#include "setting.h"

#include <veltrancord/client.h>

#include "store/value.h"

namespace veltrancord::tool {

setting_list parse_settings(const std::string& lines) {
    setting_list settings;
    const char* cursor = lines.c_str();
    veltrancord_line line;
    while (veltrancord_next_line(&cursor, &line) != 0) {
        if (line.key_length > 0) {
            settings.push_back({{line.key, line.key_length}, {line.value, line.value_length}});
        } else if (!settings.empty()) {
            settings.back().value.append("\n").append(line.value, line.value_length);
        }
    }
    return settings;
}

bool is_secret_path(std::string_view path) {
    path = path.substr(0, path.find('\0'));
    path = path.substr(0, path.find_last_not_of('.') + 1);
    const std::size_t dot = path.rfind('.');
    return IsSecretName(dot == std::string_view::npos ? path : path.substr(dot + 1));
}

bool has_blank_at_end(std::string_view path) {
    constexpr std::string_view blanks = " \t";
    return !path.empty() && (blanks.find(path.front()) != std::string_view::npos ||
                             blanks.find(path.back()) != std::string_view::npos);
}

bool loses_blanks(const setting& one) {
    const std::string& value = one.value;
    return !is_secret_path(one.path) && (value.starts_with(' ') || value.ends_with(' ') ||
                                         value.find("  ") != std::string::npos);
}

std::string shown_value(const setting& one, bool reveal) {
    return !reveal && is_secret_path(one.path) ? std::string(masked_value) : one.value;
}

std::map<std::string, std::string> by_path(const setting_list& settings) {
    std::map<std::string, std::string> map;
    for (const setting& one : settings) {
        map.emplace(one.path, one.value);
    }
    return map;
}

std::vector<setting_change> compare(const std::map<std::string, std::string>& before,
                                    const std::map<std::string, std::string>& after) {
    std::vector<setting_change> changes;
    auto old_one = before.begin();
    auto new_one = after.begin();
    while (old_one != before.end() || new_one != after.end()) {
        if (new_one == after.end() ||
            (old_one != before.end() && old_one->first < new_one->first)) {
            changes.push_back({old_one->first, &old_one->second, nullptr});
            ++old_one;
        } else if (old_one == before.end() || new_one->first < old_one->first) {
            changes.push_back({new_one->first, nullptr, &new_one->second});
            ++new_one;
        } else {
            if (old_one->second != new_one->second) {
                changes.push_back({old_one->first, &old_one->second, &new_one->second});
            }
            ++old_one;
            ++new_one;
        }
    }
    return changes;
}

bool parse_lines(const std::string& text, bool null_separated, setting_list& settings,
                 std::size_t& bad) {
    const char separator = null_separated ? '\0' : '\n';
    std::size_t start = 0;
    for (std::size_t number = 1; start < text.size(); ++number) {
        std::size_t end = text.find(separator, start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            bad = number;
            return false;
        }
        settings.push_back({line.substr(0, equals), line.substr(equals + 1), number});
    }
    return true;
}

}  // namespace veltrancord::tool
