// The deny rules for CGI commands: which commands are reserved to the holders of which permit.
//
// Built once, at start, and used by the server thread. SyncPermit does not rebuild it: a rule that
// is being edited command by command would let through, at every step between, what it is to stop.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "access/groups.h"
#include "access/owned_text.h"
#include "access/tail_queue.h"

namespace veltrancord {

inline constexpr int32_t max_filter_rules = 100;
inline constexpr int32_t max_filter_commands = 30;    // of one rule
inline constexpr int32_t max_filter_parameters = 30;  // of one command

struct FilterParam {
    tail_queue_link<FilterParam> link;
    owned_text param;
};

struct FilterCmd {
    tail_queue_link<FilterCmd> link;
    owned_text cmd;                  // "*" stands for every command
    tail_queue<FilterParam> params;  // none: the command is reserved whatever its parameters
};

struct FilterRule {
    tail_queue_link<FilterRule> link;
    int32_t related_permit = 0;  // the number of the permit whose holders may
    tail_queue<FilterCmd> commands;
};

using filter_queue = tail_queue<FilterRule>;

extern filter_queue g_filter_list;

// Builds the list anew from the configuration and the permit list, which is built first. When
// memory cannot be had that is printed and building ends; what was built until then is in use.
void init_filter_list();

// Empties the list.
void free_filter_list();

// Frees and rebuilds the list. No command does: it is there for one that applies edited rules as a
// whole, and for tests.
void reload_filter_list();

// Return: the rule of the first command, in the order of rules and of their commands, that catches
// `cmd` with these parameters, owned by the list; null when none does.
[[nodiscard]] const FilterRule* find_filter_rule(const filter_queue& rules, std::string_view cmd,
                                                 std::optional<std::string_view> params);

// Decides whether a member of `group` may issue a CGI command. A command that no rule catches is
// allowed, whatever the group.
//
// Return: result_ok, result_denied (also an unknown group, or one that holds no value for the
// rule's permit) or result_not_found (the permit's type has no check).
[[nodiscard]] int32_t decide_cgi_command(const filter_queue& filters, const group_queue& groups,
                                         std::string_view group, std::string_view cmd,
                                         std::optional<std::string_view> params);

}  // namespace veltrancord
