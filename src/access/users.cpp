#include "access/users.h"

#include <tinyxml.h>

#include <cstdint>

#include "store/numbered_elements.h"
#include "store/setting.h"
#include "store/value.h"

namespace veltrancord {

namespace {

constexpr int32_t default_user_count = 20;

// Whether any `Username` of this slot is what a look-up of it might find to be that user's.
bool may_be_slot_of(const TiXmlElement& slot, std::string_view user) {
    for (const TiXmlElement* name = slot.FirstChildElement("Username"); name != nullptr;
         name = name->NextSiblingElement("Username")) {
        if (SettingText(XmlElementText(*name)) == user) {
            return true;
        }
    }
    return false;
}

std::string_view local_user_level(std::string_view user) {
    const auto slots = ElementNumbers(
        {"Account"}, "User", ReadNumberSetting("Account.Maxuser", default_user_count),
        [user](const TiXmlElement& slot) { return may_be_slot_of(slot, user); });
    for (const int32_t slot : slots) {
        if (ReadSetting(SettingPath("Account.User", slot, ".Username")) != user) {
            continue;
        }
        // A slot without a level is one that a page has half filled in: a later slot of the same
        // user still counts.
        const std::string_view level = ReadSetting(SettingPath("Account.User", slot, ".Level"));
        if (!level.empty()) {
            return level;
        }
    }
    return {};
}

std::string_view cloud_user_group(std::string_view user, const group_queue& groups) {
    // Without a supervisor account the device is bound to no cloud at all, and whatever is left
    // of the groups' accounts does not count.
    const std::string_view supervisor = ReadSetting(SettingPath("Account.Cloud.Username"));
    if (supervisor.empty()) {
        return {};
    }
    if (supervisor == user) {
        return "SUPERVISOR";
    }
    for (const PermGroup& group : groups) {
        // The key of this group is written without the blank, and so is the name that is found: a
        // group "POWER USER" is then not found by it. Accounts of cloud power users have never had
        // that group's permits; spelling the name back would give them to every one of them.
        std::string_view name = group.name.view();
        if (name == "POWER USER") {
            name = "POWERUSER";
        }
        if (ReadSetting(SettingPath("Account.Cloud.", name, ".Username")) == user) {
            return name;
        }
    }
    return {};
}

}  // namespace

std::string_view resolve_user_group(std::string_view user, const group_queue& groups) {
    if (user.empty()) {
        return {};  // an empty setting is a missing one, so no account has this name
    }
    const std::string_view level = local_user_level(user);
    return level.empty() ? cloud_user_group(user, groups) : level;
}

}  // namespace veltrancord
