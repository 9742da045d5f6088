// doctor: how the service and its surroundings are.
#include <unistd.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "diagnosis.h"
#include "exit_status.h"
#include "quiet_output.h"
#include "state_folder.h"

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

void diagnose_pending_change(diagnosis_list& list) {
    const std::string folder = state_folder();
    if (!folder.empty() && access((folder + "/apply-pending").c_str(), F_OK) == 0) {
        list.push_back({"apply", state::warning,
                        "a change waits for its confirmation or was left over, see "
                        "veltrancordctl apply --restore"});
    }
}

int run_doctor(context& tool, const doctor_options& options) {
    diagnosis_list list;
    const bool alive = diagnose_service(tool, list);
    diagnose_semaphores(list);
    diagnose_files(options, list);
    diagnose_scripts(tool, list);
    {
        const quiet_output quiet;  // scanning prints what it cannot read
        diagnose_limits(tool, options, alive, list);
    }
    if (alive) {
        diagnose_saves(tool, options, list);
    }
    diagnose_pending_change(list);

    json report = json::array();
    bool sound = true;
    for (const diagnosis& one : list) {
        const state_look look = look_of(one.how);
        sound = sound && one.how != state::bad && one.how != state::warning;
        report.push_back({{"topic", one.topic}, {"state", look.name}, {"text", one.text}});
    }
    if (!tool.print_for_programs({{"alive", alive}, {"findings", report}})) {
        for (const diagnosis& one : list) {
            const state_look look = look_of(one.how);
            std::string state(look.name);
            state.resize(8, ' ');
            tool.print(tool.coloured(look.colour, state) + one.topic + ": " + one.text);
            tool.end_line();
        }
    }
    if (!alive) {
        return exit_unreachable;
    }
    return sound ? exit_done : exit_differs;
}

}  // namespace

void add_doctor_command(subcommand app, context& tool) {
    const auto options = std::make_shared<doctor_options>();
    subcommand command =
        app.add_subcommand("doctor", "tell how the service and its surroundings are");
    command.add_option("--directory", options->directory, "the service's directory");
    command.add_option("--log-file", options->log_file, "the service's event log");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_doctor(tool, *options); }; });
}

}  // namespace veltrancord::tool
