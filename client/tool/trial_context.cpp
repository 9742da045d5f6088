#include "trial_context.h"

#include <pwd.h>

#include <cerrno>
#include <cstring>

#include "exit_status.h"
#include "file_name.h"

namespace veltrancord::tool {

trial::setup trial_setup(const context& tool) {
    trial::setup where;
    where.folder = absolute_name(where.folder);
    where.guard_program = "/proc/self/exe";
    where.guard = {"veltrancordctl",
                   "--socket",
                   absolute_name(tool.socket_path),
                   "--timeout",
                   std::to_string(tool.timeout_seconds),
                   "trial",
                   "guard"};
    return where;
}

std::string user_name(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return "user " + (entry != nullptr ? std::string(entry->pw_name) : std::to_string(user));
}

namespace {

int explain_system_trouble(context& tool, const trial::verdict& verdict) {
    std::string reason = std::strerror(verdict.system_error);
    switch (verdict.system_error) {
        case ENOENT:
            reason += "; root makes it, or VELTRANCORD_TRIAL names another folder in memory";
            break;
        case EACCES:
            reason += "; members of its group may";
            break;
        case EPERM:
            reason += ": it must be root's or your own, and not everybody's to write to";
            break;
        case EAGAIN:
            reason = "another veltrancordctl is at work on the trial";
            break;
        default:
            break;
    }
    return tool.fail_with(verdict.system_error == EACCES ? exit_denied : exit_failed, verdict.about,
                          reason);
}

}  // namespace

int explain_trouble(context& tool, const std::string& command, const trial::verdict& verdict) {
    const std::string& about = verdict.about.empty() ? command : verdict.about;
    switch (verdict.what) {
        case trial::trouble::none:
            return exit_done;
        case trial::trouble::system:
            return explain_system_trouble(tool, verdict);
        case trial::trouble::service:
            return tool.fail_change(about, verdict.code);
        case trial::trouble::another:
            return tool.fail_with(exit_failed, command,
                                  "another change waits for its confirmation");
        case trial::trouble::differs:
            return tool.fail_with(exit_refused, about,
                                  "has changed meanwhile; nothing was written");
        case trial::trouble::not_writable:
            return tool.fail_with(exit_refused, about,
                                  "holds a line feed or a very long text, which could not be "
                                  "written back");
        case trial::trouble::nothing:
            return tool.fail_with(exit_not_found, command, no_trial);
        case trial::trouble::decided:
            return tool.fail_with(exit_failed, command, "it was decided otherwise just before");
        case trial::trouble::foreign:
            return tool.fail_with(exit_denied, command,
                                  "the change is another user's, and nobody guards it any more: he "
                                  "or root can end it");
        case trial::trouble::no_guard:
            return tool.fail_with(exit_failed, command,
                                  "no guard could be started; nothing was written");
        default:
            return tool.fail_with(exit_failed, about,
                                  "the journal of the trial cannot be understood; remove it");
    }
}

int tell_ending(context& tool, const std::string& command, trial::ending how) {
    switch (how) {
        case trial::ending::kept:
            context::note("confirmed");
            return exit_done;
        case trial::ending::given_back:
            context::note("the settings from before are written back");
            return exit_cancelled;
        case trial::ending::partly_given_back:
            return tool.fail_with(exit_failed, command,
                                  "not all settings from before could be written back");
        default:
            return tool.fail_with(exit_unknown, command, "it is not known how the trial has ended");
    }
}

}  // namespace veltrancord::tool
