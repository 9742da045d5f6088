#include "access/checks.h"

#include <strings.h>

#include <array>
#include <span>

#include "leaf/decimal_number.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

using permit_argument = std::optional<std::string_view>;

struct permit_check {
    std::string_view type;
    int32_t (*check)(std::string_view value, permit_argument argument);
};

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

int32_t check_switch(std::string_view value, permit_argument) {
    const bool on = equals_ignoring_case(value, "YES") || equals_ignoring_case(value, "ON");
    return on ? result_ok : result_denied;
}

// An empty item is a 0, also the one behind a last comma: "1," allows channel 0.
int32_t check_listed_channel(std::string_view value, permit_argument argument) {
    if (!argument) {
        return result_denied;
    }
    const int32_t channel = decimal_number(*argument);
    for (std::string_view left = value;;) {
        const auto comma = left.find(',');
        if (decimal_number(left.substr(0, comma)) == channel) {
            return result_ok;
        }
        if (comma == std::string_view::npos) {
            return result_denied;
        }
        left.remove_prefix(comma + 1);
    }
}

// A CGI command is not about one channel: the group is refused only where its list says "-1", which
// is how pages write "no channel at all". Looked for as text, so "-10" refuses as well.
int32_t check_any_channel(std::string_view value, permit_argument) {
    return value.find("-1") == std::string_view::npos ? result_ok : result_denied;
}

constexpr std::array<permit_check, 2> query_checks{{
    {"Switch", check_switch},
    {"Channel", check_listed_channel},
}};

constexpr std::array<permit_check, 2> filter_checks{{
    {"Switch", check_switch},
    {"Channel", check_any_channel},
}};

int32_t run_check(std::span<const permit_check> checks, std::string_view type,
                  std::string_view value, permit_argument argument) {
    for (const permit_check& row : checks) {
        if (row.type == type) {
            return row.check(value, argument);
        }
    }
    return result_not_found;
}

}  // namespace

int32_t check_queried_permit(std::string_view type, std::string_view value,
                             std::optional<std::string_view> argument) {
    return run_check(query_checks, type, value, argument);
}

int32_t check_filter_permit(std::string_view type, std::string_view value) {
    return run_check(filter_checks, type, value, std::nullopt);
}

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

}  // namespace veltrancord
