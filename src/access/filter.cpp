#include "access/filter.h"

#include <algorithm>
#include <memory>
#include <new>

#include "access/checks.h"
#include "access/permits.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/setting.h"

namespace veltrancord {

filter_queue g_filter_list;

namespace {

constexpr std::string_view wildcard = "*";
constexpr std::string_view rule_path = "Account.CGIPermitDenyFilter.R";

bool report_no_memory() {
    print_error("%s allocate memory fail !!\n", "init_filter_list");
    return false;
}

// Return: false when memory could not be had.
bool build_parameters(FilterCmd& command, int32_t rule_number, int32_t command_number) {
    for (int32_t number = 1; number <= max_filter_parameters; ++number) {
        const std::string_view text =
            ReadSetting(SettingPath(rule_path, rule_number, ".C", command_number, ".P", number));
        if (text.empty()) {
            break;
        }
        std::unique_ptr<FilterParam> param(new (std::nothrow) FilterParam);
        if (!param || !param->param.assign(text)) {
            return report_no_memory();
        }
        command.params.append(std::move(param));
    }
    return true;
}

// Return: false when memory could not be had.
bool build_commands(FilterRule& rule, int32_t rule_number) {
    for (int32_t number = 1; number <= max_filter_commands; ++number) {
        const std::string_view text =
            ReadSetting(SettingPath(rule_path, rule_number, ".C", number, ".CMD"));
        if (text.empty()) {
            break;
        }
        std::unique_ptr<FilterCmd> command(new (std::nothrow) FilterCmd);
        if (!command || !command->cmd.assign(text)) {
            return report_no_memory();
        }
        const bool whole = build_parameters(*command, rule_number, number);
        // Also with parameters missing: the fewer there are, the more is stopped.
        rule.commands.append(std::move(command));
        if (!whole) {
            return false;
        }
    }
    return true;
}

bool has_parameter_in(const FilterCmd& command, std::string_view params) {
    return std::any_of(command.params.begin(), command.params.end(), [&](const FilterParam& param) {
        return params.find(param.param.view()) != std::string_view::npos;
    });
}

// A client that asks for "*" by name asks for a command like any other: an entry "*" is then an
// exact one, parameters included.
bool catches(const FilterCmd& command, std::string_view cmd,
             std::optional<std::string_view> params) {
    if (!command.cmd.equals(cmd)) {
        return command.cmd.equals(wildcard);
    }
    return command.params.empty() || (params && has_parameter_in(command, *params));
}

}  // namespace

void init_filter_list() {
    free_filter_list();
    for (int32_t number = 1; number <= max_filter_rules; ++number) {
        // Rules are numbered without gaps; the first that is missing, or that is guarded by no
        // permit of this device, ends them.
        const std::string_view key = ReadSetting(SettingPath(rule_path, number, ".RelatedPermit"));
        const int32_t permit = key.empty() ? -1 : find_permit_index_by_key(g_permit_list, key);
        if (permit < 0) {
            return;
        }
        std::unique_ptr<FilterRule> made(new (std::nothrow) FilterRule);
        if (!made) {
            report_no_memory();
            return;
        }
        made->related_permit = permit;
        FilterRule& rule = g_filter_list.append(std::move(made));
        if (!build_commands(rule, number)) {
            return;
        }
    }
}

void free_filter_list() {
    g_filter_list.clear();
}

void reload_filter_list() {
    free_filter_list();
    init_filter_list();
}

const FilterRule* find_filter_rule(const filter_queue& rules, std::string_view cmd,
                                   std::optional<std::string_view> params) {
    for (const FilterRule& rule : rules) {
        for (const FilterCmd& command : rule.commands) {
            if (catches(command, cmd, params)) {
                return &rule;
            }
        }
    }
    return nullptr;
}

int32_t decide_cgi_command(const filter_queue& filters, const group_queue& groups,
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
