// Whether the value that a group holds for a permit allows something: by the permit's type.
//
// Queries and the filter for CGI commands ask differently about channels, and only about those; so
// each has its own table of checks.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "access/groups.h"

namespace veltrancord {

// What a permission query asks. "Switch": the value is YES or ON in any case; the argument does not
// count. "Channel": the argument's number is one of the value's, a list with commas.
//
// Return: result_ok when allowed, result_denied when not, result_not_found for another type; a
// missing type is a view without data, and none of the known ones.
[[nodiscard]] int32_t check_queried_permit(std::string_view type, std::string_view value,
                                           std::optional<std::string_view> argument);

// What the filter asks. "Switch": as above. "Channel": the value does not hold "-1".
//
// Return: as above.
[[nodiscard]] int32_t check_filter_permit(std::string_view type, std::string_view value);

// Whether a group may use what a permit, given by its name, guards.
//
// Return: result_ok, result_denied (also an unknown group) or result_not_found (the group holds no
// value for the permit, or its type has no check).
[[nodiscard]] int32_t decide_permit(const group_queue& groups, std::string_view group,
                                    std::string_view permit,
                                    std::optional<std::string_view> argument);

}  // namespace veltrancord
