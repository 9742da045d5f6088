#include "path_rules.h"

#include <strings.h>

#include <algorithm>

namespace veltrancord::bridge {
namespace {

constexpr std::string_view everything_below = ".*";

bool is_name_character(char one) {
    return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') || (one >= '0' && one <= '9') ||
           one == '_' || one == '-';
}

bool is_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), is_name_character);
}

bool is_same_word(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

// Takes the next component off the front of a path. Return: false at the end.
bool next_component(std::string_view& path, std::string_view& component) {
    if (path.data() == nullptr) {
        return false;
    }
    const std::size_t dot = path.find('.');
    component = path.substr(0, dot);
    path = dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
    return true;
}

}  // namespace

bool is_plain_path(std::string_view path) {
    if (path.size() > max_path || path.find('.') == std::string_view::npos) {
        return false;
    }
    std::string_view component;
    while (next_component(path, component)) {
        if (!is_name(component)) {
            return false;
        }
    }
    return true;
}

bool is_barred(std::string_view path) {
    std::string_view component;
    bool barred = is_same_word(document_of(path), "Account");
    while (!barred && next_component(path, component)) {
        barred = is_same_word(component, "Password") || is_same_word(component, "XMLDBCallBack");
    }
    return barred;
}

std::string_view document_of(std::string_view path) {
    return path.substr(0, path.find('.'));
}

bool path_rules::add(std::string_view pattern) {
    const std::string_view stem = pattern.ends_with(everything_below)
                                      ? pattern.substr(0, pattern.size() - everything_below.size())
                                      : std::string_view();
    if (stem.empty() ? !is_plain_path(pattern) : !is_name(stem) && !is_plain_path(stem)) {
        return false;
    }
    patterns_.emplace_back(pattern);
    return true;
}

bool path_rules::cover(std::string_view path) const {
    if (!is_plain_path(path) || is_barred(path)) {
        return false;
    }
    return std::any_of(patterns_.begin(), patterns_.end(), [&](const std::string& pattern) {
        // What ends in "*" covers what begins as it does, the dot included.
        return pattern.ends_with('*')
                   ? path.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1))
                   : path == pattern;
    });
}

bool path_rules::name_exactly(std::string_view path) const {
    return std::find(patterns_.begin(), patterns_.end(), path) != patterns_.end();
}

std::vector<std::string> path_rules::documents() const {
    std::vector<std::string> names;
    names.reserve(patterns_.size());
    for (const std::string& pattern : patterns_) {
        names.emplace_back(document_of(pattern));
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

}  // namespace veltrancord::bridge
