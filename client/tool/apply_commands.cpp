// apply, confirm: what differs is written, for good or as a trial (trial/trial.h).
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "change_record.h"
#include "commands.h"
#include "creation.h"
#include "description.h"
#include "difference.h"
#include "dry_run.h"
#include "exit_status.h"
#include "question.h"
#include "saved_settings.h"
#include "service.h"
#include "trial_context.h"

namespace veltrancord::tool {
namespace {

struct apply_options {
    std::string file;
    int confirm_seconds = 0;  // 0: no confirmation is asked for
    bool restore = false;
    bool discard = false;
    bool create = false;
    bool force = false;
};

constexpr int longest_trial = 7 * 24 * 60 * 60;  // seconds

// Ends the trial that there is. Return: exit_done where it was given back, or was kept, as asked.
int end_trial(context& tool, const std::string& command, bool keep) {
    trial::ending how = trial::ending::unknown;
    const trial::setup where = trial_setup(tool);
    const trial::verdict verdict = keep ? trial::keep(tool.client(), where, std::nullopt, how)
                                        : trial::give_back(tool.client(), where, std::nullopt, how);
    if (!verdict.good()) {
        return explain_trouble(tool, command, verdict);
    }
    const int status = tell_ending(tool, command, how);
    return !keep && status == exit_cancelled ? exit_done : status;
}

// A trial that waits, or that was left over by a restart. Return: exit_done when there is none
// left.
int settle_earlier(context& tool) {
    trial::state found;
    const trial::verdict verdict = trial::look(trial_setup(tool), found);
    if (!verdict.good()) {
        return explain_trouble(tool, "apply", verdict);
    }
    if (found.how_far == trial::phase::none) {
        return exit_done;
    }
    if (found.guarded) {
        return tool.fail_with(
            exit_failed, "apply",
            "another change waits for its confirmation, begun by " + user_name(found.owner));
    }
    context::note("an earlier change was neither confirmed nor taken back");
    if (asked_yes("write the settings from before it back?")) {
        return end_trial(tool, "apply", false);
    }
    return tool.fail_with(exit_cancelled, "apply", "use --restore or --discard first");
}

volatile sig_atomic_t g_stopped = 0;
volatile sig_atomic_t g_hung_up = 0;

void note_stop(int number) {
    (number == SIGHUP ? g_hung_up : g_stopped) = 1;
}

// Waits for "confirm" on standard input, for the end of the time, or for whoever ends the trial
// elsewhere. Return: whether it was typed.
bool wait_for_confirmation(const trial::ticket& begun) {
    struct sigaction action {};
    action.sa_handler = note_stop;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaction(number, &action, nullptr);
    }
    std::string typed;
    bool may_type = true;
    while (g_stopped == 0 && g_hung_up == 0 && begun.milliseconds_left() > 0 && !begun.is_over()) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, may_type ? 1 : 0, 100) > 0) {
            char block[256];
            const ssize_t count = read(STDIN_FILENO, block, sizeof block);
            may_type = count > 0;
            typed.append(block, count > 0 ? static_cast<std::size_t>(count) : 0);
            if (typed.find("confirm\n") != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

std::vector<trial::change> trial_changes(const std::vector<setting_change>& changes) {
    std::vector<trial::change> list;
    list.reserve(changes.size());
    for (const setting_change& one : changes) {
        list.push_back({one.path, one.before != nullptr ? std::optional(*one.before) : std::nullopt,
                        *one.after});
    }
    return list;
}

// After the changes are to stay. Return: exit_done, or exit_not_saved after a message.
int check_changes_saved(context& tool, const std::vector<setting_change>& changes) {
    setting_list lines;
    for (const setting_change& change : changes) {
        lines.push_back({change.path, *change.after});
    }
    return check_saved(tool, lines);
}

int apply_with_confirmation(context& tool, const std::vector<setting_change>& changes,
                            int seconds) {
    const trial::setup where = trial_setup(tool);
    trial::ticket begun;
    trial::verdict verdict =
        trial::begin(tool.client(), where, trial_changes(changes), seconds, begun);
    if (!verdict.good()) {
        return explain_trouble(tool, "apply", verdict);
    }
    context::note("written; type \"confirm\" or run \"veltrancordctl confirm\" within " +
                  std::to_string(seconds) + " seconds, else the settings from before come back");
    context::note(
        "this is not isolated from other writers: what they change meanwhile at the "
        "same places is overwritten then");
    const bool typed = wait_for_confirmation(begun);
    if (g_hung_up != 0) {
        return exit_cancelled;  // confirmed from a connection made anew, or given back by the guard
    }
    trial::ending how = trial::ending::unknown;
    if (typed) {
        verdict = trial::keep(tool.client(), where, begun.journal(), how);
    } else if (!begun.is_over()) {
        context::note("not confirmed");
        verdict = trial::give_back(tool.client(), where, begun.journal(), how);
    }
    // Somebody else may have been quicker.
    if (verdict.what == trial::trouble::nothing ||
        (verdict.good() && !typed && how == trial::ending::unknown)) {
        return tell_ending(tool, "apply", begun.how_ended());
    }
    if (!verdict.good()) {
        const int status = explain_trouble(tool, "apply", verdict);
        context::note("its guard goes on trying");
        return status;
    }
    return tell_ending(tool, "apply", how);
}

// All or nothing: what holds of a write that the service has refused in the middle is taken back.
int write_or_take_back(context& tool, const std::vector<setting_change>& changes) {
    veltrancord_client& client = tool.client();
    trial::former_settings former;
    std::string failed;
    int32_t result = trial::look_at_former(client, trial_changes(changes), former, failed);
    if (result < 0) {
        return tool.fail(failed, result);
    }
    setting_list lines;
    for (const setting_change& change : changes) {
        lines.push_back({change.path, *change.after});
    }
    result = write_settings(tool, lines, false);
    if (result >= 0) {
        return exit_done;
    }
    if (result <= VELTRANCORD_UNREACHABLE) {
        return explain_failed_write(tool, lines, result);  // nothing was sent, or nobody knows
    }
    failed = trial::first_not_changed(client, former);
    const int status = tool.fail(failed.empty() ? lines.front().path : failed, result);
    std::vector<std::string> lost;
    result = trial::put_back(client, former, true, lost);
    if (result < 0) {
        return tool.fail_change("apply", result);
    }
    for (const std::string& path : lost) {
        context::note(path + ": could not be written back");
    }
    context::note("the settings from before are written back");
    return status;
}

// What has to be written so that the service holds what the file holds; settings that the file does
// not name stay.
int find_changes(context& tool, const std::string& file, setting_map& wanted, line_map& lines,
                 setting_map& running, std::vector<setting_change>& changes) {
    int status = read_settings_file(tool, file, wanted, &lines);
    if (status == exit_done) {
        status = read_running(tool, "*", running);
    }
    if (status != exit_done) {
        return status;
    }
    std::erase_if(running, [&](const auto& one) { return wanted.count(one.first) == 0; });
    changes = compare(running, wanted);
    return exit_done;
}

int run_apply(context& tool, const apply_options& options) {
    const bool offline = !tool.root.empty();
    if (offline && (options.confirm_seconds > 0 || options.restore || options.discard)) {
        return tool.fail_with(exit_usage, "apply", "there is no service to try it with --root");
    }
    if (options.restore || options.discard) {
        return end_trial(tool, "apply", options.discard);
    }
    if (options.file.empty()) {
        return tool.fail_with(exit_usage, "apply", "needs a FILE");
    }
    setting_map wanted;
    setting_map running;
    std::vector<setting_change> changes;
    line_map lines;
    int status = offline || tool.dry_run ? static_cast<int>(exit_done) : settle_earlier(tool);
    if (status == exit_done) {
        status = find_changes(tool, options.file, wanted, lines, running, changes);
    }
    if (status == exit_done) {
        status = check_allowed(tool, written_settings(changes, lines), options.force, options.file);
    }
    if (status != exit_done || changes.empty()) {
        return status;
    }
    std::vector<std::string> created;
    status = check_creation(tool, new_settings(changes), options.create, created);
    if (status != exit_done) {
        return status;
    }
    print_difference(tool, changes);
    (void)tool.finish(exit_done);
    if (tool.dry_run) {
        return end_dry_run();
    }
    change_scope scope;
    for (const setting_change& change : changes) {
        scope.settings.push_back(change.path);
    }
    status = recorded(tool, scope, [&] {
        if (options.confirm_seconds > 0) {
            return apply_with_confirmation(tool, changes, options.confirm_seconds);
        }
        const int made = make_documents(tool, created);
        return made == exit_done ? write_or_take_back(tool, changes) : made;
    });
    if (status == exit_done) {
        tell_created(created);
        status = check_changes_saved(tool, changes);
    }
    return status;
}

}  // namespace

void add_apply_commands(subcommand app, context& tool) {
    const auto options = std::make_shared<apply_options>();
    subcommand command = app.add_subcommand(
        "apply", "write what differs in FILE with one request; with --confirm on approval");
    command.add_option("FILE", options->file, "a snapshot, lines or an exchange file; \"-\"");
    command
        .add_option("--confirm", options->confirm_seconds,
                    "take it back unless it is confirmed within so many seconds")
        .between(1, longest_trial);
    command.add_flag("--create", options->create, "also settings that are not there yet");
    add_force(command, options->force);
    add_dry_run(command, tool);
    command.add_flag("--restore", options->restore, "take back the change that waits");
    command.add_flag("--discard", options->discard, "keep the change that waits, as confirm does");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_apply(tool, *options); }; });

    command = app.add_subcommand("confirm", "confirm the change that waits for it");
    command.callback([&tool] { tool.run = [&tool] { return end_trial(tool, "confirm", true); }; });
}

}  // namespace veltrancord::tool
