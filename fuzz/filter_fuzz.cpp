// The deny rules for CGI commands: the lists keep their bounds and the first rule that catches a
// command decides, whatever the configuration holds.
#include <memory>
#include <optional>
#include <string>

#include "access/filter.h"
#include "access/groups.h"
#include "access/permits.h"
#include "access/users.h"
#include "fuzz_target.h"
#include "leaf/result.h"
#include "store/document_set.h"

namespace veltrancord::fuzz {
namespace {

bool catches(const FilterCmd& command, std::string_view cmd,
             std::optional<std::string_view> params) {
    if (!command.cmd.equals(cmd)) {
        return command.cmd.equals("*");
    }
    bool caught = command.params.empty();
    for (const FilterParam& param : command.params) {
        caught = caught || (params && params->find(param.param.view()) != params->npos);
    }
    return caught;
}

const FilterRule* simple_find(std::string_view cmd, std::optional<std::string_view> params) {
    for (const FilterRule& rule : g_filter_list) {
        for (const FilterCmd& command : rule.commands) {
            if (catches(command, cmd, params)) {
                return &rule;
            }
        }
    }
    return nullptr;
}

void check_bounds() {
    int32_t rules = 0;
    for (const FilterRule& rule : g_filter_list) {
        int32_t commands = 0;
        for (const FilterCmd& command : rule.commands) {
            int32_t parameters = 0;
            for (const FilterParam& param : command.params) {
                require(!param.param.view().empty() && param.param.view().size() <= 255,
                        "the bound of a parameter");
                ++parameters;
            }
            require(parameters <= max_filter_parameters, "how many parameters");
            ++commands;
        }
        require(commands <= max_filter_commands, "how many commands");
        ++rules;
    }
    require(rules <= max_filter_rules, "how many rules");
}

void check_question(input_reader& input) {
    const std::string user(up_to_nul(input.piece()));
    const std::string cmd(up_to_nul(input.piece()));
    std::optional<std::string> params;
    if (input.byte() % 2 == 1) {
        params = up_to_nul(input.piece());
    }
    const FilterRule* const rule = simple_find(cmd, params);
    require(find_filter_rule(g_filter_list, cmd, params) == rule, "the deciding rule");
    const std::string group(resolve_user_group(user, g_group_list));
    const int32_t result = decide_cgi_command(g_filter_list, g_group_list, group, cmd, params);
    require(rule != nullptr || result == result_ok, "what no rule catches is allowed");
    require(result == result_ok || result == result_denied || result == result_not_found,
            "a decision");
}

}  // namespace

void try_input(input_reader& input) {
    const std::string account(up_to_nul(input.piece()));
    auto document = std::make_unique<XmlDocument>("Account");
    document->LoadXMLFile(account);
    AddXmlDocNode("Account", "/nowhere/Account", std::move(document));
    init_permit_list();
    init_group_list();
    init_filter_list();
    check_bounds();
    for (int turn = 0; turn < 8 && !input.empty(); ++turn) {
        check_question(input);
    }
    free_filter_list();
    free_group_list();
    free_permit_list();
    FreeXmlDocs();
}

}  // namespace veltrancord::fuzz
