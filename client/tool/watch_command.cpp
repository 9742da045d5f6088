// watch: saved changes, as the service puts them into its directory.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "difference.h"
#include "exit_status.h"
#include "leaf/owned_fd.h"
#include "pager.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

struct watch_options {
    std::string path;
    std::string directory = "/mnt/database/xml";
    int count = -1;  // end after so many changes; below 0: never
    std::vector<std::string> program;
};

// Changes that follow one another this closely are told together.
constexpr int quiet_ms = 200;

// Reads the events that are there. Return: whether one of them is of the document that is watched.
bool take_events(int fd, const std::string& document) {
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    bool concerned = false;
    const ssize_t length = read(fd, buffer, sizeof buffer);
    for (ssize_t offset = 0; offset < length;) {
        inotify_event event{};
        std::memcpy(&event, buffer + offset, sizeof event);
        const char* name = event.len > 0 ? buffer + offset + sizeof event : "";
        concerned = concerned || document.empty() || document == "*" || document == name;
        offset += static_cast<ssize_t>(sizeof event + event.len);
    }
    return concerned;
}

// Waits for a change of the document and until it is quiet again. Return: false on a failure.
bool wait_for_change(int fd, const std::string& document) {
    bool concerned = false;
    for (;;) {
        pollfd waited{fd, POLLIN, 0};
        const int ready = poll(&waited, 1, concerned ? quiet_ms : -1);
        if (ready == 0) {
            return true;
        }
        if (ready < 0) {
            if (errno != EINTR) {
                return false;
            }
        } else if (take_events(fd, document)) {
            concerned = true;
        }
    }
}

// Runs the program with the changed lines on its standard input and waits for it.
bool run_program(const std::vector<std::string>& program, const std::string& lines) {
    std::vector<char*> arguments;
    arguments.reserve(program.size() + 1);
    for (const std::string& word : program) {
        arguments.push_back(const_cast<char*>(word.c_str()));  // NOLINT(*-const-cast): for execvp
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    owned_fd output(ends[1]);
    const owned_fd input(ends[0]);
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(input.get(), STDIN_FILENO);
        (void)execvp(arguments[0], arguments.data());
        _exit(127);
    }
    if (child < 0) {
        return false;
    }
    (void)write_whole(output.get(), lines);
    output.reset();
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) != 127;
}

// What is there now; nothing at all is no failure while it is watched, since it may come again.
int read_now(context& tool, const std::string& path, setting_map& settings) {
    setting_list list;
    const int32_t result = read_place(tool, path, list);
    if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
        return tool.fail(path, result);
    }
    settings = by_path(list);
    return exit_done;
}

int tell(context& tool, const watch_options& options, const std::vector<setting_change>& changes) {
    tool.may_colour = tool.may_colour && options.program.empty();
    const json list = difference_json(tool, changes);
    const std::string text = tool.form == output_form::json    ? one_line(list) + "\n"
                             : tool.form == output_form::shell ? shell_assignments(list, "\n")
                                                               : difference_text(tool, changes);
    if (options.program.empty()) {
        return context::print_now(text) ? exit_done : exit_failed;
    }
    return run_program(options.program, text)
               ? exit_done
               : tool.fail_with(exit_failed, options.program.front(), "could not be run");
}

int run_watch(context& tool, const watch_options& options) {
    const owned_fd watcher(inotify_init1(IN_CLOEXEC));
    if (!watcher || inotify_add_watch(watcher.get(), options.directory.c_str(),
                                      IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                          IN_ONLYDIR) < 0) {
        return tool.fail_file(options.directory);
    }
    // A program that reads none of its input must not end the watch.
    (void)signal(SIGPIPE, SIG_IGN);
    const std::string document = options.path.substr(0, options.path.find('.'));
    setting_map before;
    // A device may be without any document yet; a place that it does not have is a slip.
    int status = options.path == "*" ? read_now(tool, options.path, before)
                                     : read_running(tool, options.path, before);
    if (status == exit_done) {
        context::note("watching");
    }
    for (int seen = 0; status == exit_done && seen != options.count;) {
        if (!wait_for_change(watcher.get(), document)) {
            return tool.fail_file(options.directory);
        }
        setting_map now;
        status = read_now(tool, options.path, now);
        const std::vector<setting_change> changes = compare(before, now);
        if (status == exit_done && !changes.empty()) {
            status = tell(tool, options, changes);
            ++seen;
        }
        before = std::move(now);
    }
    return status;
}

}  // namespace

void add_watch_command(subcommand app, context& tool) {
    const auto options = std::make_shared<watch_options>();
    subcommand command = app.add_subcommand(
        "watch", "print saved changes below PATH, or run a program for each: PATH -- PROGRAM ...");
    command.add_option("PATH", options->path, "where; \"*\" is everywhere").required();
    command.add_option("PROGRAM", options->program, "reads the changes from standard input");
    command.add_option("--directory", options->directory, "the service's directory");
    command.add_option("--count", options->count, "end after so many changes");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_watch(tool, *options); }; });
}

}  // namespace veltrancord::tool
