// The deny rules for CGI commands: which commands are reserved to the holders of which permit.
//
// Built once, at start, and used by the server thread. SyncPermit does not rebuild it: a rule that
// is being edited command by command would let through, at every step between, what it is to stop.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

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

struct FilterRule;

struct FilterCmd {
    tail_queue_link<FilterCmd> link;
    owned_text cmd;                  // "*" stands for every command
    tail_queue<FilterParam> params;  // none: the command is reserved whatever its parameters
    const FilterRule* rule = nullptr;
    int32_t position = 0;  // among the commands of all rules, from 0
    uint32_t hash = 0;  // of the text: tells others of its bucket apart without looking at theirs
    FilterCmd* next_of_bucket = nullptr;
};

struct FilterRule {
    tail_queue_link<FilterRule> link;
    int32_t related_permit = 0;  // the number of the permit whose holders may
    tail_queue<FilterCmd> commands;
};

// Finds the commands of a text without a walk over the rules, of which there may be thousands of
// commands for each request to be compared with. Borrows the commands; allocates nothing.
class filter_index {
  public:
    // The commands are added in the order of their positions.
    void add(FilterCmd& command) noexcept;
    void clear() noexcept;

    // Return: the first command of this text, or null.
    [[nodiscard]] const FilterCmd* first_of(std::string_view cmd) const noexcept;

    // Return: the next command of the same text, in the order of positions, or null.
    [[nodiscard]] static const FilterCmd* next_of_same_text(const FilterCmd& command) noexcept;

    // Return: the first "*", or null.
    [[nodiscard]] const FilterCmd* first_wildcard() const noexcept { return first_wildcard_; }

  private:
    struct bucket {
        FilterCmd* first = nullptr;
        FilterCmd* last = nullptr;
    };
    std::array<bucket, 1024> buckets_{};  // a few commands share one even in the longest list
    const FilterCmd* first_wildcard_ = nullptr;
    bool empty_ = true;
};

struct filter_list {
    tail_queue<FilterRule> rules;
    filter_index index;  // of the commands of all rules
};

extern filter_list g_filter_list;

// Builds the list anew from the configuration and the permit list, which is built first. When
// memory cannot be had that is printed and building ends; what was built until then is in use.
void init_filter_list();

// Empties the list.
void free_filter_list();

// Frees and rebuilds the list; at present nothing but a start does.
void reload_filter_list();

// Return: the rule of the first command, in the order of rules and of their commands, that catches
// `cmd` with these parameters, owned by the list; null when none does.
[[nodiscard]] const FilterRule* find_filter_rule(const filter_list& list, std::string_view cmd,
                                                 std::optional<std::string_view> params);

}  // namespace veltrancord
