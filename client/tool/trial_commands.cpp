// trial: how far a change on approval is, and what its guard and the boot do with it.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "exit_status.h"
#include "trial/guard_process.h"
#include "trial_context.h"

namespace veltrancord::tool {
namespace {

const char* word_of(trial::phase how_far) {
    switch (how_far) {
        case trial::phase::waiting:
            return "waiting";
        case trial::phase::keeping:
            return "keeping";
        case trial::phase::returning:
            return "returning";
        default:
            return "none";
    }
}

int run_status(context& tool) {
    trial::state found;
    const trial::verdict verdict = trial::look(trial_setup(tool), found);
    if (!verdict.good()) {
        return explain_trouble(tool, "trial", verdict);
    }
    constexpr int64_t in_a_second = 1000;
    json left;
    if (found.milliseconds_left) {
        left = *found.milliseconds_left / in_a_second;
    }
    const bool there = found.how_far != trial::phase::none;
    if (!tool.print_for_programs({{"state", word_of(found.how_far)},
                                  {"owner", there ? json(found.owner) : json()},
                                  {"guarded", found.guarded},
                                  {"seconds", left}}) &&
        there) {
        tool.print(std::string(word_of(found.how_far)) + ", begun by " + user_name(found.owner) +
                   (left.is_null() ? "" : ", " + left.dump() + " seconds left") +
                   (found.guarded ? "" : ", without a guard: see \"trial resume\"") + "\n");
    }
    return there ? exit_done : explain_trouble(tool, "trial", {trial::trouble::nothing, ""});
}

int run_resume(context& tool) {
    trial::ending how = trial::ending::unknown;
    const trial::verdict verdict = trial::resume(tool.client(), trial_setup(tool), how);
    if (verdict.what == trial::trouble::nothing) {
        return exit_done;  // as at nearly every boot
    }
    if (!verdict.good()) {
        return explain_trouble(tool, "trial", verdict);
    }
    if (how == trial::ending::unknown) {
        context::note("a change waits for its confirmation; its guard is there");
        return exit_done;
    }
    const int status = tell_ending(tool, "trial", how);
    return status == exit_cancelled ? exit_done : status;
}

int run_guard(context& tool, const std::string& folder) {
    trial::setup where;
    where.folder = folder;
    return trial::leave_guard(tool.client(), where) ? exit_done : exit_failed;
}

}  // namespace

void add_trial_commands(subcommand app, context& tool) {
    subcommand trial = app.add_subcommand("trial", "the change that waits for its confirmation");
    trial.require_subcommand(1);
    trial.fallthrough();

    subcommand command = trial.add_subcommand("status", "tell how far it is");
    command.fallthrough();
    command.callback([&tool] { tool.run = [&tool] { return run_status(tool); }; });

    command = trial.add_subcommand(
        "resume", "finish what a restart has left: for the boot, when the service answers");
    command.fallthrough();
    command.callback([&tool] { tool.run = [&tool] { return run_resume(tool); }; });

    const auto folder = std::make_shared<std::string>();
    command = trial.add_subcommand("guard", "watch over it; apply --confirm starts this");
    command.fallthrough();
    command.add_option("FOLDER", *folder, "where it lies").required();
    command.callback(
        [&tool, folder] { tool.run = [&tool, folder] { return run_guard(tool, *folder); }; });
}

}  // namespace veltrancord::tool
