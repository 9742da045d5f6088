#include "access/filter.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "access/permits.h"
#include "leaf/message.h"
#include "store/setting.h"

namespace veltrancord {

filter_list g_filter_list;

namespace {

constexpr std::string_view wildcard = "*";
constexpr std::string_view rule_path = "Account.CGIPermitDenyFilter.R";

// FNV-1a: the texts are short, and nobody gains by making them collide.
uint32_t hash_text(std::string_view text) {
    uint32_t hash = 2166136261U;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return hash;
}

// The first command of that text among `from` and the others of its bucket behind it.
const FilterCmd* first_equal(const FilterCmd* from, std::string_view cmd, uint32_t hash) {
    while (from != nullptr && (from->hash != hash || !from->cmd.equals(cmd))) {
        from = from->next_of_bucket;
    }
    return from;
}

bool report_no_memory() {
    print_error("%s allocate memory fail !!\n", "init_filter_list");
    return false;
}

// Return: false when memory could not be had.
bool build_parameters(FilterCmd& command, int32_t rule_number, int32_t command_number) {
    for (int32_t number = 1; number <= max_filter_parameters; ++number) {
        const std::string_view text =
            read_setting(setting_path(rule_path, rule_number, ".C", command_number, ".P", number));
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
bool build_commands(FilterRule& rule, int32_t rule_number, int32_t& position) {
    for (int32_t number = 1; number <= max_filter_commands; ++number) {
        const std::string_view text =
            read_setting(setting_path(rule_path, rule_number, ".C", number, ".CMD"));
        if (text.empty()) {
            break;
        }
        std::unique_ptr<FilterCmd> command(new (std::nothrow) FilterCmd);
        if (!command || !command->cmd.assign(text)) {
            return report_no_memory();
        }
        command->rule = &rule;
        command->position = position++;
        const bool whole = build_parameters(*command, rule_number, number);
        // Also with parameters missing: the fewer there are, the more is stopped.
        g_filter_list.index.add(rule.commands.append(std::move(command)));
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

}  // namespace

void filter_index::add(FilterCmd& command) noexcept {
    empty_ = false;
    command.hash = hash_text(command.cmd.view());
    bucket& chosen = buckets_[command.hash % buckets_.size()];
    command.next_of_bucket = nullptr;
    (chosen.last != nullptr ? chosen.last->next_of_bucket : chosen.first) = &command;
    chosen.last = &command;
    if (first_wildcard_ == nullptr && command.cmd.equals(wildcard)) {
        first_wildcard_ = &command;
    }
}

void filter_index::clear() noexcept {
    if (empty_) {
        return;  // as at the start, where clearing would only touch its pages
    }
    empty_ = true;
    buckets_.fill({});
    first_wildcard_ = nullptr;
}

const FilterCmd* filter_index::first_of(std::string_view cmd) const noexcept {
    const uint32_t hash = hash_text(cmd);
    return first_equal(buckets_[hash % buckets_.size()].first, cmd, hash);
}

const FilterCmd* filter_index::next_of_same_text(const FilterCmd& command) noexcept {
    return first_equal(command.next_of_bucket, command.cmd.view(), command.hash);
}

void init_filter_list() {
    free_filter_list();
    int32_t position = 0;
    for (int32_t number = 1; number <= max_filter_rules; ++number) {
        // Rules are numbered without gaps; the first that is missing, or that is guarded by no
        // permit of this device, ends them.
        const std::string_view key =
            read_setting(setting_path(rule_path, number, ".RelatedPermit"));
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
        FilterRule& rule = g_filter_list.rules.append(std::move(made));
        if (!build_commands(rule, number, position)) {
            return;
        }
    }
}

void free_filter_list() {
    g_filter_list.index.clear();
    g_filter_list.rules.clear();
}

void reload_filter_list() {
    free_filter_list();
    init_filter_list();
}

const FilterRule* find_filter_rule(const filter_list& list, std::string_view cmd,
                                   std::optional<std::string_view> params) {
    // A client that asks for "*" by name asks for a command like any other: an entry "*" then
    // counts as its exact one, parameters included.
    const FilterCmd* const any = cmd == wildcard ? nullptr : list.index.first_wildcard();
    for (const FilterCmd* command = list.index.first_of(cmd); command != nullptr;
         command = filter_index::next_of_same_text(*command)) {
        if (any != nullptr && any->position < command->position) {
            break;
        }
        if (command->params.empty() || (params && has_parameter_in(*command, *params))) {
            return command->rule;
        }
    }
    return any != nullptr ? any->rule : nullptr;
}

}  // namespace veltrancord
