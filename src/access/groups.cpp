#include "access/groups.h"

#include <algorithm>
#include <memory>
#include <new>

#include "access/permits.h"
#include "leaf/message.h"
#include "store/numbered_elements.h"
#include "store/setting.h"

namespace veltrancord {

group_queue g_group_list;

namespace {

constexpr std::string_view group_path = "Account.Permission.Group";

// Return: the property, or null when memory could not be had.
std::unique_ptr<PermProperty> make_property(const PermitDef& permit, std::string_view value) {
    std::unique_ptr<PermProperty> property(new (std::nothrow) PermProperty);
    if (!property) {
        return nullptr;
    }
    property->permit_index = permit.index;
    const bool whole = property->name.assign(permit.name.view()) &&
                       (permit.type.absent() || property->type.assign(permit.type.view())) &&
                       property->value.assign(value);
    return whole ? std::move(property) : nullptr;
}

// Appends what the group holds for the permit, unless that is nothing.
//
// Return: false when memory could not be had.
bool append_property(PermGroup& group, const PermitDef& permit) {
    const std::string_view value =
        ReadSetting(SettingPath(group_path, group.index, ".Permit", permit.index));
    if (value.empty()) {
        return true;
    }
    std::unique_ptr<PermProperty> property = make_property(permit, value);
    if (!property) {
        return false;
    }
    group.properties.append(std::move(property));
    return true;
}

// Return: false when memory could not be had.
bool append_properties(PermGroup& group, int32_t highest_permit) try {
    const SettingPath name("Group", group.index);
    // Both the numbers and the permits rise, so one walk over the permits serves them all.
    auto permit = g_permit_list.begin();
    for (const int32_t number :
         ElementNumbers({"Account", "Permission", name.View()}, "Permit", highest_permit)) {
        permit = std::find_if(permit, g_permit_list.end(), [number](const PermitDef& candidate) {
            return candidate.index >= number;
        });
        if (permit == g_permit_list.end()) {
            break;  // this value and all further ones are for permits that are not defined
        }
        if (permit->index == number && !append_property(group, *permit)) {
            return false;
        }
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

// Appends the group of that number, unless it has no name.
//
// Return: false when memory for the group could not be had; for its properties that is printed.
bool append_group(int32_t number, int32_t highest_permit) {
    const std::string_view name = ReadSetting(SettingPath(group_path, number, ".Name"));
    if (name.empty()) {
        return true;
    }
    std::unique_ptr<PermGroup> group(new (std::nothrow) PermGroup);
    if (!group || !group->name.assign(name)) {
        return false;
    }
    group->index = number;
    if (!append_properties(g_group_list.append(std::move(group)), highest_permit)) {
        print_error("%s allocate pPermProperty memory fail !!\n", "init_group_list");
    }
    return true;
}

// Return: false when memory could not be had.
bool append_groups() try {
    const int32_t highest_permit = highest_permit_number();
    const auto numbers =
        ElementNumbers({"Account", "Permission"}, "Group",
                       ReadNumberSetting("Account.Permission.MaxGroupNum", default_group_count));
    return std::all_of(numbers.begin(), numbers.end(), [highest_permit](int32_t number) {
        return append_group(number, highest_permit);
    });
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace

void init_group_list() {
    g_group_list.clear();
    if (!append_groups()) {
        print_error("%s allocate memory fail !!\n", "init_group_list");
    }
}

void free_group_list() {
    g_group_list.clear();
}

void reload_permissions() {
    free_group_list();
    free_permit_list();
    init_permit_list();
    init_group_list();
}

const PermGroup* find_group(const group_queue& groups, std::string_view name) {
    for (const PermGroup& group : groups) {
        if (group.name.equals(name)) {
            return &group;
        }
    }
    return nullptr;
}

const PermProperty* find_property(const PermGroup& group, std::string_view name) {
    for (const PermProperty& property : group.properties) {
        if (property.name.equals(name)) {
            return &property;
        }
    }
    return nullptr;
}

const PermProperty* find_property_by_index(const PermGroup& group, int32_t index) {
    for (const PermProperty& property : group.properties) {
        if (property.permit_index == index) {
            return &property;
        }
    }
    return nullptr;
}

}  // namespace veltrancord
