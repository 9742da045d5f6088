// The checks of permits, groups, users and deny rules. The service's own routines build its lists
// from the documents that are loaded, and decide; what stands in the documents and not in the
// lists, or is never decided by, is told.
#include <tinyxml.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "access/checks.h"
#include "access/filter.h"
#include "access/groups.h"
#include "access/permits.h"
#include "access/users.h"
#include "directory_check.h"
#include "leaf/result.h"
#include "store/document_set.h"
#include "store/numbered_elements.h"
#include "store/setting.h"

namespace veltrancord::tool {
namespace {

constexpr const char* permission = "Account.Permission";
constexpr const char* deny_filter = "Account.CGIPermitDenyFilter";

// Null where there is no element, or nothing in it.
const TiXmlElement* first_child_of(const TiXmlElement* element) {
    return element != nullptr ? element->FirstChildElement() : nullptr;
}

bool has_digits_behind(std::string_view name, std::string_view prefix) {
    return name.size() > prefix.size() && name.starts_with(prefix) &&
           name.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
}

class permit_check {
  public:
    explicit permit_check(std::vector<finding>& findings) : findings_(findings) {
        init_permit_list();
        init_group_list();
        init_filter_list();
    }
    ~permit_check() {
        free_filter_list();
        free_group_list();
        free_permit_list();
    }
    permit_check(const permit_check&) = delete;
    permit_check& operator=(const permit_check&) = delete;

    void run(const TiXmlElement& account) {
        const TiXmlElement* const rights = account.FirstChildElement("Permission");
        if (rights != nullptr) {
            check_definitions(rights->FirstChildElement("Define"));
            check_groups(*rights);
        }
        check_users(account);
        check_cloud(account.FirstChildElement("Cloud"));
        check_rules(account.FirstChildElement("CGIPermitDenyFilter"));
    }

  private:
    void add(const std::string& place, const char* kind, const std::string& text) {
        findings_.push_back({"Account", place, kind, text});
    }

    void check_definitions(const TiXmlElement* define);
    void check_groups(const TiXmlElement& rights);
    void check_values(const TiXmlElement& element, const PermGroup& group);
    void check_users(const TiXmlElement& account);
    void check_user(const TiXmlElement& slot);
    void check_cloud(const TiXmlElement* cloud);
    void check_rules(const TiXmlElement* filter);
    void check_commands(const TiXmlElement& element, const FilterRule& rule);
    void check_command(const TiXmlElement& element, const std::string& place,
                       const FilterRule& rule, const FilterCmd& command);

    // Why a numbered element does not count, where it is none of the service's list.
    static std::string why_not_counted(std::string_view name, std::string_view prefix,
                                       int32_t highest, const char* bound, const char* lacks);

    std::vector<finding>& findings_;
};

std::string permit_check::why_not_counted(std::string_view name, std::string_view prefix,
                                          int32_t highest, const char* bound, const char* lacks) {
    const std::optional<int32_t> number = ElementNumber(name, prefix);
    if (!number || *number == 0) {
        return "is never read: numbers go from 1 on, without a zero before them";
    }
    if (*number > highest) {
        return std::string("is never read: ") + bound + " is " + std::to_string(highest);
    }
    return std::string("counts for nothing: it has no ") + lacks;
}

void permit_check::check_definitions(const TiXmlElement* define) {
    for (const auto* one = first_child_of(define); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::string& name = one->ValueStr();
        const std::string place = std::string(permission) + ".Define." + name;
        if (!has_digits_behind(name, "Permit")) {
            add(place, "permit-number", "is no permit: they are called Permit1, Permit2 ...");
        } else if (find_permit_index_by_key(g_permit_list, name) < 0) {
            add(place, "permit-number",
                why_not_counted(name, "Permit", highest_permit_number(), "MaxPermDefNum", "name"));
        }
    }
    for (const PermitDef& one : g_permit_list) {
        if (check_filter_permit(one.type.view(), "YES") == result_not_found) {
            add(std::string(permission) + ".Define." + std::string(one.key.view()), "permit-type",
                "has " +
                    (one.type.absent() ? std::string("no Type")
                                       : "the Type \"" + std::string(one.type.view()) + "\"") +
                    ", for which there is no check, so that it is never granted; write Switch or "
                    "Channel");
        }
    }
}

void permit_check::check_groups(const TiXmlElement& rights) {
    for (const auto* one = rights.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::string& name = one->ValueStr();
        if (!has_digits_behind(name, "Group")) {
            continue;
        }
        const PermGroup* found = nullptr;
        for (const PermGroup& group : g_group_list) {
            found = ElementNumber(name, "Group") == group.index ? &group : found;
        }
        const std::string place = std::string(permission) + "." + name;
        if (found == nullptr) {
            const int32_t highest =
                ReadNumberSetting("Account.Permission.MaxGroupNum", default_group_count);
            add(place, "group-number",
                why_not_counted(name, "Group", highest, "MaxGroupNum", "Name"));
            continue;
        }
        if (find_group(g_group_list, found->name.view()) != found) {
            add(place, "group-name",
                "is never asked: a group before it has the name \"" +
                    std::string(found->name.view()) + "\", too");
        }
        check_values(*one, *found);
    }
}

void permit_check::check_values(const TiXmlElement& element, const PermGroup& group) {
    for (const auto* one = element.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::string& name = one->ValueStr();
        if (!has_digits_behind(name, "Permit")) {
            continue;
        }
        const std::optional<int32_t> number = ElementNumber(name, "Permit");
        const bool counts = number && find_property_by_index(group, *number) != nullptr;
        const bool empty = number && ReadSetting(SettingPath("Account.Permission.Group",
                                                             group.index, ".Permit", *number))
                                         .empty();
        if (!counts && !empty) {
            add(std::string(permission) + "." + element.ValueStr() + "." + name, "undefined-permit",
                "is granted, but no such permit is defined");
        }
    }
}

void permit_check::check_user(const TiXmlElement& slot) {
    const std::string place = "Account." + slot.ValueStr();
    const auto text_of = [&slot](const char* name) {
        const TiXmlElement* const one = slot.FirstChildElement(name);
        const char* const text = one != nullptr ? one->GetText() : nullptr;
        return SettingText(text != nullptr ? text : "");
    };
    const std::string_view name = text_of("Username");
    const std::string_view level = text_of("Level");
    if (name.empty() || level.empty()) {
        return;
    }
    if (resolve_user_group(name, g_group_list) != level) {
        add(place, "user-slot",
            "is never asked: another slot has its name, or its number is not read (see "
            "Account.Maxuser)");
    } else if (find_group(g_group_list, level) == nullptr) {
        add(place + ".Level", "user-group",
            "names no group, so that the user is denied everything: \"" + std::string(level) +
                "\"");
    }
}

void permit_check::check_users(const TiXmlElement& account) {
    for (const auto* one = account.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        if (has_digits_behind(one->ValueStr(), "User")) {
            check_user(*one);
        }
    }
}

// The accounts of groups are children of the cloud's account, called as the groups.
void permit_check::check_cloud(const TiXmlElement* cloud) {
    for (const auto* one = first_child_of(cloud); one != nullptr; one = one->NextSiblingElement()) {
        const std::string& name = one->ValueStr();
        if (name == "Username" || name == "Password") {
            continue;
        }
        const std::string place = "Account.Cloud." + name;
        const TiXmlElement* const inner = one->FirstChildElement("Username");
        const char* const text = inner != nullptr ? inner->GetText() : nullptr;
        if (text == nullptr) {
            add(place, "cloud-user", "has no Username, so that nobody has this account");
        } else if (resolve_user_group(text, g_group_list) != name) {
            add(place, "cloud-user",
                "is never asked: there is no group of this name, the name is another user's, or "
                "Account.Cloud has no Username");
        }
    }
}

void permit_check::check_rules(const TiXmlElement* filter) {
    int32_t count = 0;
    for (const FilterRule& rule : g_filter_list) {
        ++count;
        const TiXmlElement* const element =
            filter->FirstChildElement(("R" + std::to_string(count)).c_str());
        if (element != nullptr) {
            check_commands(*element, rule);
        }
    }
    for (const auto* one = first_child_of(filter); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::string& name = one->ValueStr();
        const std::optional<int32_t> number = ElementNumber(name, "R");
        if (number && *number >= 1 && *number <= count) {
            continue;
        }
        const std::string place = std::string(deny_filter) + "." + name;
        const bool is_first = number == count + 1 && count < max_filter_rules;
        if (is_first) {
            add(place + ".RelatedPermit", "rule-permit",
                "names no defined permit: this rule and all behind it are void");
        } else {
            add(place, "rule-behind-gap",
                number && *number > max_filter_rules
                    ? "is never reached: at most 100 rules are read"
                    : "is never reached: a rule before it is missing or void");
        }
    }
}

void permit_check::check_commands(const TiXmlElement& element, const FilterRule& rule) {
    const std::string base = std::string(deny_filter) + "." + element.ValueStr() + ".";
    int32_t count = 0;
    for (const FilterCmd& command : rule.commands) {
        const std::string name = "C" + std::to_string(++count);
        const TiXmlElement* const inner = element.FirstChildElement(name.c_str());
        if (inner != nullptr) {
            check_command(*inner, base + name, rule, command);
        }
    }
    for (const auto* one = element.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::optional<int32_t> number = ElementNumber(one->ValueStr(), "C");
        if (one->ValueStr() != "RelatedPermit" && !(number && *number >= 1 && *number <= count)) {
            add(base + one->ValueStr(), "command-behind-gap",
                number && *number > max_filter_commands
                    ? "is never reached: at most 30 commands of a rule are read"
                    : "is never reached: it has no CMD, or a command before it is missing");
        }
    }
}

// Asks for the command as a client would, with what it is caught by.
void permit_check::check_command(const TiXmlElement& element, const std::string& place,
                                 const FilterRule& rule, const FilterCmd& command) {
    int32_t count = 0;
    std::optional<std::string_view> parameters;
    for (const FilterParam& param : command.params) {
        parameters = ++count == 1 ? param.param.view() : parameters;
    }
    for (const auto* one = element.FirstChildElement(); one != nullptr;
         one = one->NextSiblingElement()) {
        const std::optional<int32_t> number = ElementNumber(one->ValueStr(), "P");
        if (one->ValueStr() != "CMD" && !(number && *number >= 1 && *number <= count)) {
            add(place + "." + one->ValueStr(), "parameter-behind-gap",
                number && *number > max_filter_parameters
                    ? "is never reached: at most 30 parameters of a command are read"
                    : "is never reached: a parameter before it is missing, or this one is empty");
        }
    }
    const FilterRule* const caught =
        find_filter_rule(g_filter_list, command.cmd.view(), parameters);
    if (caught != &rule) {
        add(place, "hidden-command",
            "is never asked: a rule before this one catches it, by a \"*\" or by the same name");
    }
}

}  // namespace

void check_permits(std::vector<finding>& findings) {
    const XmlDocument* const account = FindXmlDoc("Account");
    if (account == nullptr || account->RootElement() == nullptr ||
        account->RootElement()->ValueStr() != "Account") {
        return;
    }
    permit_check(findings).run(*account->RootElement());
}

}  // namespace veltrancord::tool
