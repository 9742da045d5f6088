// Answers from the permit and group lists.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "access/groups.h"
#include "access/permits.h"
#include "handler/reply_text.h"

namespace veltrancord {

// Whether a group may use what a permit, given by its name, guards.
//
// Return: result_ok, result_denied (also an unknown group) or result_not_found (the group holds no
// value for the permit, or its type has no check).
[[nodiscard]] int32_t decide_permit(const group_queue& groups, std::string_view group,
                                    std::string_view permit,
                                    std::optional<std::string_view> argument);

// Appends one line for each permit, in list order, to `out`, which the caller has opened. A missing
// type or value reads "(null)": pages that show the list look for just this text.
//
// Return: false when memory could not be had.
[[nodiscard]] bool list_permits(const permit_queue& permits, reply_text& out);

}  // namespace veltrancord
