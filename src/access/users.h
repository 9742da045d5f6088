// Which permission group a user belongs to.
#pragma once

#include <string_view>

#include "access/groups.h"

namespace veltrancord {

// Resolves a user name to the name of a group: first the local users in the order of their slots,
// then the cloud account with supervisor rights, then the cloud accounts of the groups in list
// order. Users are read from the configuration each time, so that a change counts at once; group
// names are those of the list. The name found need not be that of a group in the list.
//
// Return: the group name, valid until the configuration or the list changes; empty for an unknown
// user (a group name is never empty). Memory that cannot be had is thrown as std::bad_alloc.
[[nodiscard]] std::string_view resolve_user_group(std::string_view user, const group_queue& groups);

}  // namespace veltrancord
