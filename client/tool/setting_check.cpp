// The checks among settings that the service itself reads.
#include <optional>
#include <string>

#include "directory_check.h"
#include "event_names.h"
#include "leaf/decimal_number.h"
#include "store/document_set.h"
#include "store/value.h"

namespace veltrancord::tool {
namespace {

constexpr int most_rules = 100;

std::optional<std::string> value_of(const std::string& path) {
    XmlValue value;
    if (ReadXmlValue(path, value) <= 0) {
        return std::nullopt;
    }
    return std::string(value.text);
}

// A count as the service reads it: the text as atoi() would, or what it takes when there is none.
int count_of(const std::string& path, int otherwise) {
    const auto text = value_of(path);
    return text ? decimal_number(*text) : otherwise;
}

std::string numbered(const std::string& prefix, int number, const std::string& suffix = "") {
    return prefix + std::to_string(number) + suffix;
}

void check_event_bits(std::vector<finding>& findings) {
    const int count = count_of("Notification.Log.BitDefine.Num", 0);
    for (int number = 1; number <= count && number <= most_rules * 10; ++number) {
        const std::string path = numbered("Notification.Log.BitDefine.Def", number, ".Bit");
        const auto text = value_of(path);
        uint32_t bits = 0;
        if (!text) {
            findings.push_back(
                {"Notification", path, "event-bits", "is missing though \"Num\" counts it"});
        } else if (text->find('x') == std::string::npos) {
            findings.push_back({"Notification", path, "event-bits",
                                "has no 'x', so that the definition counts for nothing"});
        } else if (!parse_event_bits_text(*text, bits)) {
            findings.push_back(
                {"Notification", path, "event-bits", "has not 1 to 8 digits behind its 'x'"});
        }
    }
}

void check_permits(std::vector<finding>& findings) {
    const int groups = count_of("Account.Permission.MaxGroupNum", 10);
    const int permits = count_of("Account.Permission.MaxPermDefNum", 20);
    for (int group = 1; group <= groups && group <= 1000; ++group) {
        const std::string base = numbered("Account.Permission.Group", group);
        for (int permit = 1; permit <= permits && permit <= 1000; ++permit) {
            const std::string granted = base + numbered(".Permit", permit);
            if (value_of(granted) &&
                !value_of(numbered("Account.Permission.Define.Permit", permit))) {
                findings.push_back({"Account", granted, "undefined-permit",
                                    "is granted, but no such permit is defined"});
            }
        }
    }
}

bool is_defined_permit(const std::string& key) {
    return key.compare(0, 6, "Permit") == 0 && value_of("Account.Permission.Define." + key);
}

// Rules are numbered without gaps: the first number that is missing, or whose permit is not
// defined, ends the list.
void check_deny_rules(std::vector<finding>& findings) {
    const std::string base = "Account.CGIPermitDenyFilter.R";
    bool ended = false;
    for (int rule = 1; rule <= most_rules; ++rule) {
        const std::string path = numbered(base, rule, ".RelatedPermit");
        const auto permit = value_of(path);
        if (!permit) {
            ended = true;
        } else if (ended) {
            findings.push_back({"Account", numbered(base, rule), "rule-behind-gap",
                                "is never reached: a rule before it is missing or void"});
        } else if (!is_defined_permit(*permit)) {
            findings.push_back({"Account", path, "rule-permit",
                                "names no defined permit: this rule and all behind it are void"});
            ended = true;
        }
    }
    if (value_of(numbered(base, most_rules + 1, ".RelatedPermit"))) {
        findings.push_back({"Account", numbered(base, most_rules + 1), "rule-behind-gap",
                            "is never reached: at most 100 rules are read"});
    }
}

}  // namespace

void check_settings(std::vector<finding>& findings) {
    check_event_bits(findings);
    check_permits(findings);
    check_deny_rules(findings);
}

}  // namespace veltrancord::tool
