#include "access/permit_query.h"

#include <array>
#include <charconv>
#include <limits>

#include "access/checks.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

std::string_view listed(const owned_text& text) {
    return text.absent() ? "(null)" : text.view();
}

bool list_permit(const PermitDef& permit, reply_text& out) {
    std::array<char, std::numeric_limits<int32_t>::digits10 + 2> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), permit.index).ptr;
    const std::string_view index(digits.data(), static_cast<std::size_t>(end - digits.data()));
    return out.append_all("permit", index, "=", permit.name.view(), "&type=", listed(permit.type),
                          "&value=", listed(permit.value), "\n");
}

}  // namespace

int32_t decide_permit(const group_queue& groups, std::string_view group, std::string_view permit,
                      std::optional<std::string_view> argument) {
    const PermGroup* const found = find_group(groups, group);
    if (found == nullptr) {
        return result_denied;
    }
    const PermProperty* const property = find_property(*found, permit);
    if (property == nullptr) {
        return result_not_found;
    }
    return check_queried_permit(property->type.view(), property->value.view(), argument);
}

bool list_permits(const permit_queue& permits, reply_text& out) {
    for (const PermitDef& permit : permits) {
        if (!list_permit(permit, out)) {
            return false;
        }
    }
    return true;
}

}  // namespace veltrancord
