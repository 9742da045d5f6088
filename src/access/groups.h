// The permission groups and the permits that each of them holds values for.
//
// Built at start and by SyncPermit, used by the server thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "access/owned_text.h"
#include "access/tail_queue.h"

namespace veltrancord {

// "Account.Permission.Group<group>.Permit<number>", for a permit that is defined.
struct PermProperty {
    tail_queue_link<PermProperty> link;
    owned_text name;           // copied from the permit
    owned_text type;           // copied from the permit; may be absent
    owned_text value;          // what the group holds for it; never absent
    int32_t permit_index = 0;  // the permit's number
};

// "Account.Permission.Group<number>".
struct PermGroup {
    tail_queue_link<PermGroup> link;
    owned_text name;                      // as the `Level` of the users in the group has it
    int32_t index = 0;                    // the number, from 1
    tail_queue<PermProperty> properties;  // in rising order of permit_index
};

using group_queue = tail_queue<PermGroup>;

extern group_queue g_group_list;  // in rising order of index, gaps allowed

// Builds the list anew from the configuration and the permit list, which is built first. When
// memory cannot be had that is printed: for a group building ends, for a property that group ends.
void init_group_list();

// Empties the list.
void free_group_list();

// Frees and rebuilds the permit list and the group list from the configuration as it is now.
void reload_permissions();

// Return: the first group of that name (compared exactly), owned by the list, or null.
[[nodiscard]] const PermGroup* find_group(const group_queue& groups, std::string_view name);

// Return: the group's first property for the permit of that name (of that number), or null.
[[nodiscard]] const PermProperty* find_property(const PermGroup& group, std::string_view name);
[[nodiscard]] const PermProperty* find_property_by_index(const PermGroup& group, int32_t index);

}  // namespace veltrancord
