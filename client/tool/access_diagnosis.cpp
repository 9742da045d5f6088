// What the doctor says of the access file.
#include <cerrno>
#include <cstring>

#include "access_check.h"
#include "diagnosis.h"
#include "guard/policy_file.h"

namespace veltrancord::tool {

void diagnose_access(const examination& found, diagnosis_list& list) {
    const std::string file = access_file_path();
    std::vector<access_finding> findings;
    if (!check_access_file(file, user_of_process(found.service.supervisor), findings)) {
        list.push_back(
            {"access", state::info,
             file + (errno == ENOENT ? ": absent, so whoever may connect may do everything"
                                     : std::string(": ") + std::strerror(errno))});
        return;
    }
    for (const access_finding& one : findings) {
        const std::string place = one.line > 0 ? file + ":" + std::to_string(one.line) : file;
        list.push_back(
            {"access", one.obeyed ? state::warning : state::bad,
             place + ": " + one.text +
                 (one.obeyed ? "" : "; root and the service's own user alone are served")});
    }
    parsed_policy parsed;
    std::string text;
    if (!parse_access_file(file, parsed, text) || !parsed.mistakes.empty()) {
        return;
    }
    if (parsed.policy.permissive) {
        list.push_back({"access", state::warning, file + ": permissive, so nothing is refused"});
    } else if (findings.empty()) {
        const std::size_t rules = parsed.policy.rules.size();
        list.push_back({"access", state::good,
                        file + ": " + std::to_string(rules) + (rules == 1 ? " rule" : " rules")});
    }
}

}  // namespace veltrancord::tool
