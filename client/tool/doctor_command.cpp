// doctor: how the service and its surroundings are.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "diagnosis.h"
#include "exit_status.h"
#include "quiet_output.h"
#include "service_numbers.h"
#include "trial_context.h"

namespace veltrancord::tool {
namespace {

struct state_look {
    const char* name;
    const char* colour;
};

state_look look_of(state how) {
    switch (how) {
        case state::good:
            return {"good", "32"};
        case state::warning:
            return {"warning", "33"};
        case state::bad:
            return {"bad", "31"};
        default:
            return {"info", "0"};
    }
}

void diagnose_trial(const context& tool, diagnosis_list& list) {
    trial::state found;
    if (!trial::look(trial_setup(tool), found).good() || found.how_far == trial::phase::none) {
        return;
    }
    list.push_back({"apply", state::warning,
                    found.guarded
                        ? "a change waits for its confirmation, begun by " + user_name(found.owner)
                        : "a change on approval was left over, see veltrancordctl trial "
                          "resume"});
}

diagnosis_list diagnose(context& tool, const examination& found) {
    diagnosis_list list;
    diagnose_service(tool, found, list);
    diagnose_access(found, list);
    diagnose_semaphores(list);
    diagnose_files(found.places, list);
    diagnose_fsck(tool, found.places, list);
    diagnose_scripts(tool, list);
    {
        const quiet_output quiet;  // scanning prints what it cannot read
        diagnose_limits(tool, found, list);
    }
    if (found.alive) {
        diagnose_saves(found, list);
        diagnose_key(tool, list);
    }
    diagnose_trial(tool, list);
    return list;
}

bool is_problem(const diagnosis& one) {
    return one.how == state::bad || one.how == state::warning;
}

// What is worst first, and else in the order in which it was looked at.
void put_problems_first(diagnosis_list& list) {
    std::stable_sort(list.begin(), list.end(), [](const diagnosis& one, const diagnosis& other) {
        const auto rank = [](const diagnosis& each) {
            return each.how == state::bad ? 0 : each.how == state::warning ? 1 : 2;
        };
        return rank(one) < rank(other);
    });
}

std::string summary_of(const examination& found, const std::string& version,
                       std::ptrdiff_t problems) {
    const std::string name = version.empty() ? "Veltrancord" : "Veltrancord " + version;
    const std::string count = problems == 0   ? "no problem"
                              : problems == 1 ? "1 problem"
                                              : std::to_string(problems) + " problems";
    return name + (found.alive ? " answers: " : " does not answer: ") + count;
}

int run_doctor(context& tool, const examined_places& places) {
    const examination found = examine(tool, places);
    const std::string version = service_version(found.service);
    diagnosis_list list = diagnose(tool, found);
    put_problems_first(list);
    const auto problems = std::count_if(list.begin(), list.end(), is_problem);
    const std::string summary = summary_of(found, version, problems);

    json report = json::array();
    for (const diagnosis& one : list) {
        report.push_back(
            {{"topic", one.topic}, {"state", look_of(one.how).name}, {"text", one.text}});
    }
    if (!tool.print_for_programs({{"alive", found.alive},
                                  {"version", version},
                                  {"summary", summary},
                                  {"problems", problems},
                                  {"numbers", numbers_json(numbers_of(found))},
                                  {"findings", report}})) {
        tool.print(summary);
        tool.end_line();
        for (const diagnosis& one : list) {
            const state_look look = look_of(one.how);
            std::string state(look.name);
            state.resize(8, ' ');
            tool.print(tool.coloured(look.colour, state) + one.topic + ": " + one.text);
            tool.end_line();
        }
    }
    if (!found.alive) {
        return exit_unreachable;
    }
    return problems == 0 ? exit_done : exit_differs;
}

}  // namespace

void add_doctor_command(subcommand app, context& tool) {
    const auto options = std::make_shared<examined_places>();
    subcommand command =
        app.add_subcommand("doctor", "tell how the service and its surroundings are");
    command.add_option("--directory", options->directory, "the service's directory");
    command.add_option("--log-file", options->log_file, "the service's event log");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_doctor(tool, *options); }; });
}

}  // namespace veltrancord::tool
