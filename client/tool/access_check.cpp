#include "access_check.h"

#include <sys/stat.h>

#include <cerrno>

#include "guard/policy_file.h"
#include "question.h"

namespace veltrancord::tool {
namespace {

// Each name in the rules, and the empty one.
std::set<std::string> named_documents(const access_policy& policy) {
    std::set<std::string> names = {""};
    for (const access_rule& rule : policy.rules) {
        names.insert(rule.documents.named.begin(), rule.documents.named.end());
        names.insert(rule.documents.excepted.begin(), rule.documents.excepted.end());
    }
    return names;
}

// Whether the rule decides for the peer that as few other rules as possible speak of.
bool decides(const access_policy& policy, const access_rule& rule,
             const std::set<std::string>& documents) {
    peer_identity peer;
    if (rule.subject != rule_subject::any) {
        (rule.subject == rule_subject::user ? peer.user : peer.group) = rule.id;
    }
    for (std::size_t number = 0; number < command_class_count; ++number) {
        const auto which = static_cast<command_class>(number);
        if (!rule.classes.has(which)) {
            continue;
        }
        for (const std::string& document : documents) {
            if ((document.empty() || has_documents(which)) &&
                decide(policy, peer, {which, document}).line == rule.line) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

uid_t user_of_process(int process) {
    struct stat found {};
    const std::string place = "/proc/" + std::to_string(process);
    return process > 0 && stat(place.c_str(), &found) == 0 ? found.st_uid : 0;
}

std::set<std::string> told_documents(const access_policy& policy) {
    std::set<std::string> names = named_documents(policy);
    std::string other = "Other";
    while (!names.insert(other).second) {
        other += "_";
    }
    return names;
}

std::string shown_document(const access_policy& policy, const std::string& document) {
    return named_documents(policy).count(document) > 0 ? document : "(any other)";
}

std::vector<std::size_t> idle_rules(const access_policy& policy) {
    const std::set<std::string> documents = told_documents(policy);
    std::vector<std::size_t> lines;
    for (const access_rule& rule : policy.rules) {
        if (!decides(policy, rule, documents)) {
            lines.push_back(rule.line);
        }
    }
    return lines;
}

bool parse_access_file(const std::string& file, parsed_policy& parsed, std::string& text) {
    if (!read_input(file, text)) {
        return false;
    }
    parsed = parse_policy(text, system_accounts());
    return true;
}

bool check_access_file(const std::string& file, uid_t own_user,
                       std::vector<access_finding>& findings) {
    std::string text;
    parsed_policy parsed;
    if (!parse_access_file(file, parsed, text)) {
        return false;
    }
    const policy_reading reading = read_policy_file(file.c_str(), own_user, system_accounts());
    if (reading.state == policy_state::absent) {
        errno = ENOENT;
        return false;
    }
    for (const policy_mistake& one : reading.mistakes) {
        if (one.line == 0) {
            findings.push_back({0, one.text, false});
        }
    }
    for (const policy_mistake& one : parsed.mistakes) {
        if (one.line != 0) {
            findings.push_back({one.line, one.text, false});
        }
    }
    if (parsed.mistakes.empty()) {
        for (const std::size_t line : idle_rules(parsed.policy)) {
            findings.push_back(
                {line, "never decides anything: the rules before it always do", true});
        }
    }
    return true;
}

}  // namespace veltrancord::tool
