#include "trail_entries.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <string_view>
#include <utility>

namespace veltrancord::tool {
namespace {

constexpr std::string_view version = "1 ";
constexpr std::string_view element_begin = "[veltrancord@32473";

// Takes what stands before the next blank. Return: empty where there is none.
std::string_view take_field(std::string_view& rest) {
    const std::size_t end = rest.find(' ');
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return field;
}

// A moment in UTC, "2026-11-22T15:12:02.123456Z". Return: none where it is no such text.
std::optional<int64_t> seconds_of(std::string_view text) {
    std::tm parts{};
    const std::string whole(text);
    const char* const rest = strptime(whole.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr || (*rest != '.' && *rest != 'Z') || !text.ends_with('Z')) {
        return std::nullopt;
    }
    return timegm(&parts);
}

// Takes ` name="value"`, undoing the escapes. Return: false where none stands there, with "]" there
// at the element's end.
bool take_parameter(std::string_view& rest, std::string_view& name, std::string& value) {
    const std::size_t equals = rest.find("=\"");
    if (!rest.starts_with(' ') || equals == std::string_view::npos) {
        return false;
    }
    name = rest.substr(1, equals - 1);
    value.clear();
    for (std::size_t at = equals + 2; at < rest.size(); ++at) {
        if (rest[at] == '"') {
            rest.remove_prefix(at + 1);
            return true;
        }
        if (rest[at] == '\\' && at + 1 < rest.size()) {
            ++at;
        }
        value += rest[at];
    }
    return false;
}

bool take_number(const std::string& text, int64_t& number) {
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end;
}

// Return: false where the parameter cannot be.
bool keep(trail_entry& entry, std::string_view name, std::string value) {
    const std::array<std::pair<std::string_view, std::string*>, 5> texts = {
        {{"user", &entry.user},
         {"uid", &entry.uid},
         {"pid", &entry.process},
         {"program", &entry.program},
         {"command", &entry.command}}};
    const std::array<std::pair<std::string_view, int64_t*>, 3> numbers = {
        {{"result", &entry.result}, {"more", &entry.more}, {"lost", &entry.lost}}};
    for (const auto& [one, text] : texts) {
        if (name == one) {
            *text = std::move(value);
            return true;
        }
    }
    for (const auto& [one, number] : numbers) {
        if (name == one) {
            return take_number(value, *number);
        }
    }
    if (name == "path") {
        entry.paths.push_back({std::move(value), std::nullopt, std::nullopt});
    } else if (name == "old" || name == "new") {
        if (entry.paths.empty()) {
            return false;
        }
        (name == "old" ? entry.paths.back().before : entry.paths.back().after) = std::move(value);
    }
    return true;  // others may come to be
}

// The record that begins here: version, time, host, service, process, kind, element.
std::optional<trail_entry> parse_at(std::string_view rest) {
    if (!rest.starts_with(version)) {
        return std::nullopt;
    }
    rest.remove_prefix(version.size());
    const std::optional<int64_t> time = seconds_of(take_field(rest));
    (void)take_field(rest);  // the host
    const std::string_view service = take_field(rest);
    (void)take_field(rest);  // the service's process
    trail_entry entry;
    entry.kind = take_field(rest);
    if (!time || service != "veltrancord" || !rest.starts_with(element_begin)) {
        return std::nullopt;
    }
    entry.time = *time;
    rest.remove_prefix(element_begin.size());
    std::string_view name;
    std::string value;
    while (take_parameter(rest, name, value)) {
        if (!keep(entry, name, std::move(value))) {
            return std::nullopt;
        }
    }
    return rest.starts_with(']') && !entry.command.empty() ? std::optional(entry) : std::nullopt;
}

}  // namespace

bool concerns(const std::string& path, const std::string& place) {
    const auto top_of = [](std::string_view tree) {
        return tree == "*" || tree == ".*" ? std::string_view()
               : tree.ends_with(".*")      ? tree.substr(0, tree.size() - 2)
                                           : tree;
    };
    const auto lies_at = [](std::string_view inner, std::string_view outer) {
        return outer.empty() || inner == outer ||
               (inner.starts_with(outer) && inner[outer.size()] == '.');
    };
    const std::string_view told = top_of(path);
    const std::string_view asked = top_of(place);
    return lies_at(told, asked) || lies_at(asked, told);
}

std::optional<trail_entry> parse_trail_entry(const logged_line& line) {
    if (line.whole) {
        return parse_at(line.text);
    }
    // A syslog's own header comes first: a date, a host, perhaps a priority.
    for (std::size_t at = line.text.find(version); at != std::string_view::npos;
         at = line.text.find(version, at + 1)) {
        const bool begins = at == 0 || line.text[at - 1] == ' ' || line.text[at - 1] == '>';
        std::optional<trail_entry> entry =
            begins ? parse_at(line.text.substr(at)) : std::optional<trail_entry>();
        if (entry) {
            return entry;
        }
    }
    return std::nullopt;
}

int read_trail(context& tool, const std::string& file, std::vector<trail_entry>& entries) {
    return for_each_logged_line(tool, file, said_by::record, [&entries](const logged_line& line) {
        std::optional<trail_entry> entry = parse_trail_entry(line);
        if (entry) {
            entries.push_back(std::move(*entry));
        }
    });
}

}  // namespace veltrancord::tool
