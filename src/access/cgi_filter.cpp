#include "access/cgi_filter.h"

#include "access/checks.h"
#include "leaf/result.h"

namespace veltrancord {

int32_t decide_cgi_command(const filter_list& filters, const group_queue& groups,
                           std::string_view group, std::string_view cmd,
                           std::optional<std::string_view> params) {
    const FilterRule* const rule = find_filter_rule(filters, cmd, params);
    if (rule == nullptr) {
        return result_ok;
    }
    const PermGroup* const found = find_group(groups, group);
    if (found == nullptr) {
        return result_denied;
    }
    const PermProperty* const property = find_property_by_index(*found, rule->related_permit);
    if (property == nullptr) {
        return result_denied;
    }
    return check_filter_permit(property->type.view(), property->value.view());
}

}  // namespace veltrancord
