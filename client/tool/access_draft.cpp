#include "access_draft.h"

#include <pwd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace veltrancord::tool {
namespace {

// Takes "NAME VALUE" off the front. Return: the value; empty where something else stands there.
std::string_view take_word(std::string_view& rest, std::string_view name) {
    if (!rest.starts_with(name) || rest.size() <= name.size() || rest[name.size()] != ' ') {
        return {};
    }
    rest.remove_prefix(name.size() + 1);
    const std::string_view value = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(value.size() + 1, rest.size()));
    return value;
}

// Whether it can stand in a rule, and can do nothing to whoever reads the draft.
bool is_plain_name(std::string_view name) {
    constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    constexpr std::size_t longest = 63;  // as of a document
    return !name.empty() && name.size() <= longest &&
           name.find_first_not_of(plain) == std::string_view::npos;
}

// The user's name, or the number where he has none that a file can hold.
std::string name_of(uid_t user) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> buffer{};
    (void)getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr && is_plain_name(found->pw_name) ? found->pw_name
                                                             : std::to_string(user);
}

// Appends a rule, or several where one line would be too long. Without documents it holds
// everywhere.
void append_rules(std::string& text, const std::string& user,
                  const std::vector<command_class>& classes,
                  const std::set<std::string>& documents) {
    std::string begin = "allow user " + user + " ";
    for (std::size_t index = 0; index < classes.size(); ++index) {
        begin.append(index > 0 ? "," : "").append(class_name(classes[index]));
    }
    std::string line = begin + (documents.empty() ? "" : " on");
    const std::size_t empty = line.size();
    for (const std::string& one : documents) {
        if (line.size() + 1 + one.size() > max_policy_line) {
            text += line + "\n";
            line.resize(empty);
        }
        line += " " + one;
    }
    text += line + "\n";
}

// Where the service's own message begins: behind what a syslog puts before it. Clients may have the
// service print such words further back.
std::size_t message_begin(const logged_line& logged) {
    const std::string_view line = logged.text;
    if (line.starts_with(would_be_refused)) {
        return 0;
    }
    if (logged.whole) {
        return std::string_view::npos;
    }
    constexpr std::string_view end_of_tag = ": ";
    const std::size_t end = line.find(end_of_tag);
    const std::size_t begin = end == std::string_view::npos ? end : end + end_of_tag.size();
    return begin != std::string_view::npos && line.substr(begin).starts_with(would_be_refused)
               ? begin
               : std::string_view::npos;
}

}  // namespace

void access_draft::add(const logged_line& line) {
    const std::size_t begin = message_begin(line);
    if (begin == std::string_view::npos) {
        return;
    }
    std::string_view rest = line.text.substr(begin + would_be_refused.size());
    const std::string_view user = take_word(rest, "user");
    const std::string_view group = take_word(rest, "group");
    const std::optional<command_class> which = class_of_name(take_word(rest, "class"));
    constexpr std::string_view document_mark = "document ";
    uint32_t number = 0;
    const auto read = std::from_chars(user.data(), user.data() + user.size(), number);
    if (user.empty() || group.empty() || !which || read.ec != std::errc() ||
        read.ptr != user.data() + user.size() || !rest.starts_with(document_mark)) {
        return;
    }
    const std::string_view document = rest.substr(document_mark.size());
    if (is_plain_name(document)) {
        seen_[number][*which].emplace(document);
    } else {
        ++left_out_;
    }
}

std::string access_draft::text() const {
    std::string text =
        "# A draft: what was asked for while nothing was refused. Whoever had access then stands "
        "here,\n"
        "# wanted or not: look at each line before \"enforce\" takes the place of \"permissive\".\n"
        "mode permissive\n";
    for (const auto& [user, classes] : seen_) {
        std::map<std::set<std::string>, std::vector<command_class>> by_documents;
        for (const auto& [which, documents] : classes) {
            const bool everywhere = documents.count("-") > 0;
            by_documents[everywhere ? std::set<std::string>() : documents].push_back(which);
        }
        for (const auto& [documents, some] : by_documents) {
            append_rules(text, name_of(user), some, documents);
        }
    }
    return text;
}

}  // namespace veltrancord::tool
