#include "guard/policy.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

namespace veltrancord {

namespace {

constexpr std::array<std::string_view, command_class_count> class_names = {
    "read",     "secrets",   "write",     "memory",  "files",    "remove",
    "log-read", "log-write", "log-clear", "permits", "sessions", "admin"};

constexpr std::size_t longest_document_name = 63;  // as the store keeps it
constexpr std::size_t longest_directory = 200;     // so that a file's name fits behind it
constexpr int32_t longest_deadline = 3'600'000;    // milliseconds
constexpr uint32_t whole = 100;                    // percent

// A text that is a decimal number and nothing else.
std::optional<uint32_t> whole_number(std::string_view text) {
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    const bool read = error == std::errc() && stopped == end && !text.empty();
    return read ? std::optional(number) : std::nullopt;
}

std::string quoted(std::string_view word) {
    return std::string("\"").append(word).append("\"");
}

using word_list = std::vector<std::string_view>;

word_list words_of(std::string_view line) {
    constexpr std::string_view blanks = " \t";
    word_list words;
    while (true) {
        const std::size_t begin = line.find_first_not_of(blanks);
        if (begin == std::string_view::npos) {
            return words;
        }
        line.remove_prefix(begin);
        const std::string_view word = line.substr(0, line.find_first_of(blanks));
        words.push_back(word);
        line.remove_prefix(word.size());
    }
}

bool has_control_character(std::string_view line) {
    return std::any_of(line.begin(), line.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte < ' ' && character != '\t') || byte == 0x7F;
    });
}

// Each statement's routine returns what is wrong with it, empty for nothing.
class parser {
  public:
    explicit parser(const account_lookup& accounts) : accounts_(accounts) {}

    parsed_policy parse(std::string_view text);

  private:
    using statement_routine = std::string (parser::*)(std::span<const std::string_view> words);
    struct statement_row {
        std::string_view name;
        statement_routine routine;
        bool once;
    };
    static const std::array<statement_row, 7> statements;

    void read_line(std::string_view line);
    std::string read_statement(std::span<const std::string_view> words);

    std::string read_mode(std::span<const std::string_view> words);
    std::string read_rule(std::span<const std::string_view> words);
    std::string read_directories(std::span<const std::string_view> words);
    std::string read_share(std::span<const std::string_view> words);
    std::string read_deadline(std::span<const std::string_view> words);
    std::string read_trail(std::span<const std::string_view> words);

    std::string read_subject(std::span<const std::string_view>& words, access_rule& rule);
    static std::string read_classes(std::string_view text, bool restricted, class_set& classes);
    static std::string read_documents(std::span<const std::string_view> words,
                                      rule_documents& documents);
    std::string find_user(std::string_view name, uid_t& user);
    std::string find_group(std::string_view name, gid_t& group) const;

    account_lookup accounts_;
    parsed_policy result_;
    std::size_t line_ = 0;
    std::array<bool, 7> seen_ = {};  // which statements have been there
};

const std::array<parser::statement_row, 7> parser::statements = {{
    {"mode", &parser::read_mode, true},
    {"allow", &parser::read_rule, false},
    {"deny", &parser::read_rule, false},
    {"files-below", &parser::read_directories, true},
    {"places-per-user", &parser::read_share, true},
    {"request-deadline", &parser::read_deadline, true},
    {"trail", &parser::read_trail, false},
}};

parsed_policy parser::parse(std::string_view text) {
    if (text.size() > max_policy_size) {
        result_.mistakes.push_back(
            {0, "is over " + std::to_string(max_policy_size) + " bytes long"});
        return std::move(result_);
    }
    while (!text.empty() && result_.mistakes.size() < max_policy_mistakes) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        ++line_;
        read_line(line);
    }
    return std::move(result_);
}

void parser::read_line(std::string_view line) {
    std::string mistake;
    if (line.size() > max_policy_line) {
        mistake = "is over " + std::to_string(max_policy_line) + " bytes long";
    } else {
        const std::string_view statement = line.substr(0, line.find('#'));
        if (has_control_character(statement)) {
            mistake = "holds a control character";
        } else if (const word_list words = words_of(statement); !words.empty()) {
            mistake = read_statement(words);
        }
    }
    if (!mistake.empty()) {
        result_.mistakes.push_back({line_, std::move(mistake)});
    }
}

std::string parser::read_statement(std::span<const std::string_view> words) {
    for (std::size_t row = 0; row < statements.size(); ++row) {
        if (statements[row].name != words[0]) {
            continue;
        }
        if (statements[row].once && std::exchange(seen_[row], true)) {
            return quoted(words[0]) + " stands there twice";
        }
        return (this->*statements[row].routine)(words);
    }
    return "unknown statement " + quoted(words[0]);
}

std::string parser::read_mode(std::span<const std::string_view> words) {
    if (words.size() != 2 || (words[1] != "enforce" && words[1] != "permissive")) {
        return "\"mode\" takes \"enforce\" or \"permissive\"";
    }
    result_.policy.permissive = words[1] == "permissive";
    return {};
}

std::string parser::find_user(std::string_view name, uid_t& user) {
    if (const auto number = whole_number(name); number && *number != no_id) {
        user = *number;
        return {};
    }
    const auto found = accounts_.user(std::string(name));
    if (!found) {
        return "unknown user " + quoted(name);
    }
    user = *found;
    std::vector<named_user>& users = result_.policy.users;
    const bool known = std::any_of(users.begin(), users.end(),
                                   [&](const named_user& one) { return one.id == user; });
    if (!known) {
        users.push_back({user, std::string(name)});
    }
    return {};
}

std::string parser::find_group(std::string_view name, gid_t& group) const {
    if (const auto number = whole_number(name); number && *number != no_id) {
        group = *number;
        return {};
    }
    const auto found = accounts_.group(std::string(name));
    if (!found) {
        return "unknown group " + quoted(name);
    }
    group = *found;
    return {};
}

// Takes the words off that say whom the rule means.
std::string parser::read_subject(std::span<const std::string_view>& words, access_rule& rule) {
    const std::string_view kind = words[0];
    words = words.subspan(1);
    if (kind == "any") {
        rule.subject = rule_subject::any;
        return {};
    }
    if (kind != "user" && kind != "group") {
        return "expected \"user\", \"group\" or \"any\" instead of " + quoted(kind);
    }
    if (words.empty()) {
        return quoted(kind) + " is followed by no name";
    }
    rule.name = words[0];
    words = words.subspan(1);
    if (kind == "user") {
        rule.subject = rule_subject::user;
        return find_user(rule.name, rule.id);
    }
    rule.subject = rule_subject::group;
    return find_group(rule.name, rule.id);
}

std::string parser::read_classes(std::string_view text, bool restricted, class_set& classes) {
    if (text == "all") {
        classes = class_set::all();
        return {};
    }
    for (std::string_view rest = text;;) {
        const std::string_view name = rest.substr(0, rest.find(','));
        const auto which = class_of_name(name);
        if (!which) {
            return "unknown class " + quoted(name);
        }
        if (restricted && !has_documents(*which)) {
            return "class " + quoted(name) + " has no documents";
        }
        classes.add(*which);
        if (name.size() == rest.size()) {
            return {};
        }
        rest.remove_prefix(name.size() + 1);
    }
}

// What stands behind the classes: nothing, or "on" and names.
std::string parser::read_documents(std::span<const std::string_view> words,
                                   rule_documents& documents) {
    if (words.empty()) {
        return {};
    }
    if (words[0] != "on") {
        return "expected \"on\" instead of " + quoted(words[0]);
    }
    documents.restricted = true;
    bool excepted = false;
    for (const std::string_view word : words.subspan(1)) {
        if (word == "except") {
            if (std::exchange(excepted, true)) {
                return "\"except\" stands there twice";
            }
        } else if (word == "*" && !excepted) {
            documents.every = true;
        } else if (word == "*" || word == "on" || word.size() > longest_document_name ||
                   word.find_first_of("/.,") != std::string_view::npos) {
            return quoted(word) + " is no name of a document";
        } else {
            (excepted ? documents.excepted : documents.named).emplace_back(word);
        }
    }
    if (!documents.every && documents.named.empty()) {
        return "\"on\" is followed by no document";
    }
    return excepted && documents.excepted.empty() ? "\"except\" is followed by no document" : "";
}

std::string parser::read_rule(std::span<const std::string_view> words) {
    if (result_.policy.rules.size() == max_policy_rules) {
        return "there are more than " + std::to_string(max_policy_rules) + " rules";
    }
    access_rule rule;
    rule.line = line_;
    rule.allow = words[0] == "allow";
    words = words.subspan(1);
    if (words.empty()) {
        return "expected \"user\", \"group\" or \"any\"";
    }
    if (std::string mistake = read_subject(words, rule); !mistake.empty()) {
        return mistake;
    }
    if (words.empty()) {
        return "expected classes of commands";
    }
    std::string mistake = read_documents(words.subspan(1), rule.documents);
    if (mistake.empty()) {
        mistake = read_classes(words[0], rule.documents.restricted, rule.classes);
    }
    if (mistake.empty()) {
        result_.policy.rules.push_back(std::move(rule));
    }
    return mistake;
}

std::string parser::read_directories(std::span<const std::string_view> words) {
    if (words.size() < 2) {
        return "\"files-below\" is followed by no directory";
    }
    if (words.size() - 1 > max_policy_directories) {
        return "there are more than " + std::to_string(max_policy_directories) + " directories";
    }
    for (const std::string_view word : words.subspan(1)) {
        if (word[0] != '/' || word.size() > longest_directory) {
            return quoted(word) + " is no path from \"/\" on of at most " +
                   std::to_string(longest_directory) + " bytes";
        }
        result_.policy.directories.emplace_back(word);
    }
    return {};
}

std::string parser::read_share(std::span<const std::string_view> words) {
    static constexpr const char* mistake = "\"places-per-user\" takes 1% to 100%, or a number";
    if (words.size() != 2) {
        return mistake;
    }
    std::string_view text = words[1];
    const bool percent = text.ends_with('%');
    text.remove_suffix(percent ? 1 : 0);
    const auto number = whole_number(text);
    if (!number || *number < 1 || (percent && *number > whole)) {
        return mistake;
    }
    result_.policy.share_is_percent = percent;
    result_.policy.share = *number;
    return {};
}

// Return: milliseconds; -1 for "off".
std::optional<int32_t> duration(std::string_view text) {
    if (text == "off") {
        return -1;
    }
    uint32_t unit = 1000;
    if (text.ends_with("ms")) {
        unit = 1;
        text.remove_suffix(2);
    } else if (text.ends_with('s')) {
        text.remove_suffix(1);
    } else {
        return std::nullopt;
    }
    const auto number = whole_number(text);
    if (!number || *number < 1 || *number > uint32_t{longest_deadline} / unit) {
        return std::nullopt;
    }
    return static_cast<int32_t>(*number * unit);
}

std::string parser::read_deadline(std::span<const std::string_view> words) {
    const auto time = words.size() > 1 ? duration(words[1]) : std::nullopt;
    if (!time) {
        return "\"request-deadline\" takes \"off\" or 1ms to 3600s";
    }
    result_.policy.request_deadline = *time;
    if (words.size() == 2) {
        return {};
    }
    if (words[2] != "except" || words.size() == 3) {
        return "expected \"except\" and users behind the time";
    }
    for (const std::string_view word : words.subspan(3)) {
        uid_t user = 0;
        if (std::string mistake = find_user(word, user); !mistake.empty()) {
            return mistake;
        }
        result_.policy.deadline_exceptions.push_back(user);
    }
    return {};
}

std::string parser::read_trail(std::span<const std::string_view> words) {
    access_policy& policy = result_.policy;
    const bool values = words.size() == 3 && words[2] == "values";
    if (words.size() > 1 && words[1] == "changes" && (words.size() == 2 || values)) {
        policy.trail_changes = true;
        policy.trail_values = values || policy.trail_values;
        return {};
    }
    if (words.size() == 2 && words[1] == "refusals") {
        policy.trail_refusals = true;
        return {};
    }
    return "\"trail\" takes \"changes\", \"changes values\" or \"refusals\"";
}

bool is_in(std::span<const gid_t> groups, gid_t group) {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool matches_peer(const access_rule& rule, const peer_identity& peer) {
    switch (rule.subject) {
        case rule_subject::any:
            return true;
        case rule_subject::user:
            return peer.user_known ? rule.id == peer.user : !rule.allow;
        case rule_subject::group:
            return rule.id == peer.group || is_in(peer.groups, rule.id) ||
                   (!peer.groups_known && !rule.allow);
    }
    return false;
}

bool is_in(const std::vector<std::string>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool matches_document(const rule_documents& documents, std::string_view name) {
    if (!documents.restricted) {
        return true;
    }
    return !name.empty() && (documents.every || is_in(documents.named, name)) &&
           !is_in(documents.excepted, name);
}

std::optional<uid_t> system_user(const std::string& name) {
    const passwd* const entry = ::getpwnam(name.c_str());
    return entry != nullptr ? std::optional(entry->pw_uid) : std::nullopt;
}

std::optional<gid_t> system_group(const std::string& name) {
    const group* const entry = ::getgrnam(name.c_str());
    return entry != nullptr ? std::optional(entry->gr_gid) : std::nullopt;
}

}  // namespace

std::string_view class_name(command_class which) noexcept {
    return class_names[static_cast<std::size_t>(which)];
}

std::optional<command_class> class_of_name(std::string_view name) noexcept {
    const auto* const found = std::find(class_names.begin(), class_names.end(), name);
    if (found == class_names.end()) {
        return std::nullopt;
    }
    return static_cast<command_class>(found - class_names.begin());
}

account_lookup system_accounts() noexcept {
    return {system_user, system_group};
}

parsed_policy parse_policy(std::string_view text, const account_lookup& accounts) {
    return parser(accounts).parse(text);
}

access_decision decide(const access_policy& policy, const peer_identity& peer,
                       const access_need& need) noexcept {
    for (const access_rule& rule : policy.rules) {
        if (!rule.classes.has(need.which) || !matches_document(rule.documents, need.document)) {
            continue;
        }
        if (rule.subject == rule_subject::group && !peer.groups_asked) {
            return {false, 0, true};
        }
        if (matches_peer(rule, peer)) {
            return {rule.allow, rule.line, false};
        }
    }
    return {};
}

std::size_t share_of(const access_policy& policy, std::size_t places) noexcept {
    const std::size_t share =
        policy.share_is_percent ? places * policy.share / whole : std::size_t{policy.share};
    return std::max<std::size_t>(share, 1);
}

}  // namespace veltrancord
