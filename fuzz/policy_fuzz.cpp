// The access file: mistakes are told in order and within their bounds, and a text without one gives
// the decisions that reading its lines one by one gives.
#include <algorithm>
#include <array>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "guard/policy.h"

namespace veltrancord::fuzz {
namespace {

std::optional<uid_t> user_number(const std::string& name) {
    return name == "web" ? std::optional<uid_t>(33) : std::nullopt;
}

std::optional<gid_t> group_number(const std::string& name) {
    return name == "staff" ? std::optional<gid_t>(50) : std::nullopt;
}

struct asked {
    uint32_t user;
    uint32_t group;
    command_class which;
    std::string document;
};

std::vector<std::string> words_of(const std::string& line) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::vector<std::string> found;
    for (std::string word; words >> word;) {
        found.push_back(word);
    }
    return found;
}

uint32_t number_of(const std::string& name) {
    if (name == "web") {
        return 33;
    }
    return name == "staff" ? 50 : static_cast<uint32_t>(std::stoul(name));
}

bool means(const std::vector<std::string>& words, std::size_t& at, const asked& question) {
    const std::string& kind = words[1];
    if (kind == "any") {
        at = 2;
        return true;
    }
    at = 3;
    return number_of(words[2]) == (kind == "user" ? question.user : question.group);
}

bool has_class(const std::string& classes, command_class which) {
    const std::string name(class_name(which));
    return classes == "all" || ("," + classes + ",").find("," + name + ",") != std::string::npos;
}

bool has_document(const std::vector<std::string>& words, std::size_t at,
                  const std::string& document) {
    if (at >= words.size()) {
        return true;  // no "on"
    }
    const auto except = std::find(words.begin(), words.end(), "except");
    const auto begin = words.begin() + static_cast<std::ptrdiff_t>(at) + 1;
    return !document.empty() &&
           (std::find(begin, except, "*") != except ||
            std::find(begin, except, document) != except) &&
           std::find(except, words.end(), document) == words.end();
}

// The number of the line that decides, negative for one that denies; 0: none.
long simple_decision(const std::string& text, const asked& question) {
    std::istringstream lines(text);
    long number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::vector<std::string> words = words_of(line);
        if (words.empty() || (words[0] != "allow" && words[0] != "deny")) {
            continue;
        }
        std::size_t at = 0;
        if (means(words, at, question) && has_class(words[at], question.which) &&
            has_document(words, at + 1, question.document)) {
            return words[0] == "allow" ? number : -number;
        }
    }
    return 0;
}

void check_bounds(const parsed_policy& parsed) {
    const access_policy& policy = parsed.policy;
    require(parsed.mistakes.size() <= max_policy_mistakes, "how many mistakes");
    require(std::is_sorted(parsed.mistakes.begin(), parsed.mistakes.end(),
                           [](const policy_mistake& one, const policy_mistake& other) {
                               return one.line < other.line;
                           }),
            "the order of the mistakes");
    require(policy.rules.size() <= max_policy_rules, "how many rules");
    require(policy.directories.size() <= max_policy_directories, "how many directories");
    require(policy.request_deadline == -1 ||
                (policy.request_deadline > 0 && policy.request_deadline <= 3'600'000),
            "the deadline");
    require(share_of(policy, 1000) >= 1, "the share");
}

// The documents that the text names, and one that it does not.
std::vector<std::string> documents_of(const access_policy& policy) {
    std::vector<std::string> names = {"", "Network"};
    for (const access_rule& rule : policy.rules) {
        names.insert(names.end(), rule.documents.named.begin(), rule.documents.named.end());
        names.insert(names.end(), rule.documents.excepted.begin(), rule.documents.excepted.end());
        if (names.size() > 16) {
            break;
        }
    }
    return names;
}

}  // namespace

void try_input(input_reader& input) {
    const std::string text(input.rest());
    const parsed_policy parsed = parse_policy(text, {user_number, group_number});
    check_bounds(parsed);
    if (!parsed.mistakes.empty()) {
        return;
    }
    constexpr std::array<uint32_t, 3> numbers = {0, 33, 50};
    for (const std::string& document : documents_of(parsed.policy)) {
        for (std::size_t which = 0; which < command_class_count; ++which) {
            for (const uint32_t number : numbers) {
                const asked question{number, number, static_cast<command_class>(which), document};
                const access_decision decision =
                    decide(parsed.policy, {number, number, {}, true, true},
                           {question.which, question.document});
                const auto line = static_cast<long>(decision.line);
                require(simple_decision(text, question) == (decision.allowed ? line : -line),
                        "the decision");
            }
        }
    }
}

}  // namespace veltrancord::fuzz
