// apply, confirm: a change that takes itself back unless it is confirmed.
//
// Before anything is written the values that were there are saved in the state folder, with the
// process that applies; only the confirmation, or having written them back, removes that file. So a
// run that was killed leaves it behind, and the next one offers what it holds.
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "creation.h"
#include "difference.h"
#include "exit_status.h"
#include "process_facts.h"
#include "question.h"
#include "saved_settings.h"
#include "service.h"
#include "state_folder.h"

namespace veltrancord::tool {
namespace {

struct apply_options {
    std::string file;
    int confirm_seconds = 0;  // 0: no confirmation is asked for
    bool restore = false;
    bool discard = false;
    bool create = false;
};

constexpr std::string_view process_mark = "# process ";
constexpr std::string_view nothing_waits = "no change waits for a confirmation";
constexpr std::string_view new_mark = "# new ";

// The process that applies, as no other process is called while it lives or later.
std::string process_name(long process) {
    const std::string facts = process_start(process);
    return facts.empty() ? std::string() : std::to_string(process) + " " + facts;
}

// What a change that waits for its confirmation would be taken back to.
struct pending_change {
    std::string process;               // see process_name()
    setting_list before;               // values that were there
    std::vector<std::string> created;  // paths that were not
};

std::string pending_name(const std::string& folder) {
    return folder + "/apply-pending";
}

std::string pending_text(context& tool, const std::vector<setting_change>& changes) {
    std::string text(process_mark);
    text += process_name(getpid()) + "\n";
    for (const setting_change& change : changes) {
        if (change.before == nullptr && is_there(tool, change.path)) {
            text += change.path + "=";  // without a text, but it may have attributes
        } else if (change.before == nullptr) {
            text += new_mark;
            text += change.path;
        } else {
            text += change.path + "=" + *change.before;
        }
        text += '\n';
    }
    return text;
}

bool still_applies(const pending_change& pending) {
    return !pending.process.empty() &&
           process_name(std::atol(pending.process.c_str())) == pending.process;
}

bool read_pending(const std::string& folder, pending_change& pending) {
    std::string text;
    if (!read_input(pending_name(folder), text)) {
        return false;
    }
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        if (line.compare(0, process_mark.size(), process_mark) == 0) {
            pending.process = line.substr(process_mark.size());
        } else if (line.compare(0, new_mark.size(), new_mark) == 0) {
            pending.created.push_back(line.substr(new_mark.size()));
        }
        start = end + 1;
    }
    std::size_t bad = 0;
    return parse_lines(text, false, pending.before, bad);
}

// Writes back what was there before and removes what was not. Return: the exit status.
int take_back(context& tool, const std::string& folder) {
    pending_change pending;
    if (!read_pending(folder, pending)) {
        return tool.fail_with(exit_failed, pending_name(folder), std::strerror(errno));
    }
    if (!pending.before.empty()) {
        const int32_t result = write_settings(tool, pending.before, false);
        if (result < 0) {
            return explain_failed_write(tool, pending.before, result);
        }
    }
    for (const std::string& path : pending.created) {
        const int32_t result = veltrancord_remove(&tool.client(), path.c_str());
        if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
            return tool.fail_change(path, result);
        }
    }
    (void)unlink(pending_name(folder).c_str());
    context::note("the settings from before are written back");
    return exit_done;
}

// A change of an earlier run that was neither confirmed nor taken back. Return: exit_done when
// there is none left.
int settle_earlier(context& tool, const std::string& folder) {
    pending_change pending;
    if (!read_pending(folder, pending)) {
        return exit_done;
    }
    if (still_applies(pending)) {
        return tool.fail_with(exit_failed, "apply",
                              "another change waits for its confirmation, process " +
                                  pending.process.substr(0, pending.process.find(' ')));
    }
    context::note("an earlier change was neither confirmed nor taken back");
    if (asked_yes("write the settings from before it back?")) {
        return take_back(tool, folder);
    }
    return tool.fail_with(exit_cancelled, "apply", "use --restore or --discard first");
}

volatile sig_atomic_t g_stopped = 0;

void note_stop(int /*signal*/) {
    g_stopped = 1;
}

// Waits for "confirm": typed on standard input, or from "veltrancordctl confirm" elsewhere, which
// removes the pending change.
bool wait_for_confirmation(const std::string& folder, int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    struct sigaction action {};
    action.sa_handler = note_stop;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaction(number, &action, nullptr);
    }
    std::string typed;
    bool may_type = true;
    while (g_stopped == 0 && std::chrono::steady_clock::now() < end) {
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
        if (access(pending_name(folder).c_str(), F_OK) != 0) {
            return true;
        }
    }
    return false;
}

int write_changes(context& tool, const std::vector<setting_change>& changes) {
    setting_list lines;
    for (const setting_change& change : changes) {
        lines.push_back({change.path, *change.after});
    }
    const int32_t result = write_settings(tool, lines, false);
    return result < 0 ? explain_failed_write(tool, lines, result) : exit_done;
}

// After the changes are to stay. Return: exit_done, or exit_not_saved after a message.
int check_changes_saved(context& tool, const std::vector<setting_change>& changes) {
    setting_list lines;
    for (const setting_change& change : changes) {
        lines.push_back({change.path, *change.after});
    }
    return check_saved(tool, lines);
}

int apply_with_confirmation(context& tool, const std::string& folder,
                            const std::vector<setting_change>& changes, int seconds) {
    for (const setting_change& change : changes) {
        if (change.before != nullptr && change.before->find('\n') != std::string::npos) {
            return tool.fail_with(exit_refused, change.path,
                                  "holds a line feed, which could not be written back");
        }
    }
    if (!write_private_file(pending_name(folder), pending_text(tool, changes))) {
        return tool.fail_with(exit_failed, pending_name(folder), std::strerror(errno));
    }
    int status = write_changes(tool, changes);
    if (status != exit_done) {
        (void)take_back(tool, folder);
        return status;
    }
    context::note("written; type \"confirm\" or run \"veltrancordctl confirm\" within " +
                  std::to_string(seconds) + " seconds, else the settings from before come back");
    context::note(
        "this is not isolated from other writers: what they change meanwhile at the "
        "same places is overwritten then");
    if (wait_for_confirmation(folder, seconds)) {
        (void)unlink(pending_name(folder).c_str());
        context::note("confirmed");
        return exit_done;
    }
    context::note("not confirmed");
    status = take_back(tool, folder);
    return status == exit_done ? exit_cancelled : status;
}

// What has to be written so that the service holds what the file holds; settings that the file does
// not name stay.
int find_changes(context& tool, const std::string& file, setting_map& wanted, setting_map& running,
                 std::vector<setting_change>& changes) {
    int status = read_settings_file(tool, file, wanted);
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
    const std::string folder = state_folder();
    if (folder.empty()) {
        return tool.fail_with(exit_failed, "state folder", std::strerror(errno));
    }
    if (options.restore) {
        return access(pending_name(folder).c_str(), F_OK) == 0
                   ? take_back(tool, folder)
                   : tool.fail_with(exit_not_found, "apply", nothing_waits);
    }
    if (options.discard) {
        (void)unlink(pending_name(folder).c_str());
        return exit_done;
    }
    if (options.file.empty()) {
        return tool.fail_with(exit_usage, "apply", "needs a FILE");
    }
    setting_map wanted;
    setting_map running;
    std::vector<setting_change> changes;
    int status = settle_earlier(tool, folder);
    if (status == exit_done) {
        status = find_changes(tool, options.file, wanted, running, changes);
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
    status = make_documents(tool, created);
    if (status != exit_done) {
        return status;
    }
    status = options.confirm_seconds > 0
                 ? apply_with_confirmation(tool, folder, changes, options.confirm_seconds)
                 : write_changes(tool, changes);
    if (status == exit_done) {
        tell_created(created);
        status = check_changes_saved(tool, changes);
    }
    return status;
}

int run_confirm(context& tool) {
    const std::string folder = state_folder();
    pending_change pending;
    if (folder.empty() || !read_pending(folder, pending)) {
        return tool.fail_with(exit_not_found, "confirm", nothing_waits);
    }
    if (unlink(pending_name(folder).c_str()) != 0) {
        return tool.fail_with(exit_failed, pending_name(folder), std::strerror(errno));
    }
    context::note("confirmed");
    return exit_done;
}

}  // namespace

void add_apply_commands(subcommand app, context& tool) {
    const auto options = std::make_shared<apply_options>();
    subcommand command = app.add_subcommand(
        "apply", "write what differs in FILE with one request; with --confirm on approval");
    command.add_option("FILE", options->file, "a snapshot, lines or an exchange file; \"-\"");
    command.add_option("--confirm", options->confirm_seconds,
                       "take it back unless it is confirmed within so many seconds");
    command.add_flag("--create", options->create, "also settings that are not there yet");
    command.add_flag("--restore", options->restore, "take back a change that was left over");
    command.add_flag("--discard", options->discard, "keep a change that was left over");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_apply(tool, *options); }; });

    command = app.add_subcommand("confirm", "confirm the change that waits for it");
    command.callback([&tool] { tool.run = [&tool] { return run_confirm(tool); }; });
}

}  // namespace veltrancord::tool
