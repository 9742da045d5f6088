// Whether a user may issue a CGI command.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "access/filter.h"
#include "access/groups.h"

namespace veltrancord {

// Decides for a member of `group`. A command that no rule catches is allowed, whatever the group.
//
// Return: result_ok, result_denied (also an unknown group, or one that holds no value for the
// rule's permit) or result_not_found (the permit's type has no check).
[[nodiscard]] int32_t decide_cgi_command(const filter_list& filters, const group_queue& groups,
                                         std::string_view group, std::string_view cmd,
                                         std::optional<std::string_view> params);

}  // namespace veltrancord
