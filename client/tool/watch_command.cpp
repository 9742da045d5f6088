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
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "change_record.h"
#include "commands.h"
#include "difference.h"
#include "exit_status.h"
#include "history.h"
#include "leaf/owned_fd.h"
#include "pager.h"
#include "place_state.h"
#include "time_text.h"

namespace veltrancord::tool {
namespace {

struct watch_options {
    std::string path;  // empty: everywhere
    std::string directory = "/mnt/database/xml";
    int count = -1;       // end after so many changes; below 0: never
    bool record = false;  // into the history; nothing is printed
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
int read_now(context& tool, const std::string& path, place_state& state) {
    state = {};
    const int32_t result = read_places(tool, {path}, state);
    return result < 0 ? tool.fail(path, result) : static_cast<int>(exit_done);
}

// The attributes under the names by which people are told them.
setting_map marked(const setting_map& attributes) {
    setting_map result;
    for (const auto& [path, value] : attributes) {
        result.emplace("attr " + path, value);
    }
    return result;
}

std::string text_of_changes(const context& tool, const place_state& before,
                            const place_state& now) {
    const setting_map old_attributes = marked(before.attributes);
    const setting_map new_attributes = marked(now.attributes);
    const std::string settings = difference_text(tool, compare(before.settings, now.settings));
    const std::string attributes = difference_text(tool, compare(old_attributes, new_attributes));
    return settings.empty() && attributes.empty()
               ? std::string()
               : local_time(std::time(nullptr)) + "\n" + settings + attributes;
}

json json_of_changes(const context& tool, const place_state& before, const place_state& now) {
    json list = difference_json(tool, compare(before.settings, now.settings));
    const std::size_t settings = list.size();
    for (json& one : difference_json(tool, compare(before.attributes, now.attributes))) {
        list.push_back(std::move(one));
    }
    for (std::size_t index = 0; index < list.size(); ++index) {
        list[index]["attribute"] = index >= settings;
        list[index]["time"] = std::time(nullptr);
    }
    return list;
}

int tell(context& tool, const watch_options& options, const place_state& before,
         const place_state& now) {
    tool.may_colour = tool.may_colour && options.program.empty();
    std::string text;
    if (tool.form == output_form::text) {
        text = text_of_changes(tool, before, now);
    } else {
        const json list = json_of_changes(tool, before, now);
        text =
            tool.form == output_form::json ? one_line(list) + "\n" : shell_assignments(list, "\n");
    }
    if (options.program.empty()) {
        return context::print_now(text) ? exit_done : exit_failed;
    }
    return run_program(options.program, text)
               ? exit_done
               : tool.fail_with(exit_failed, options.program.front(), "could not be run");
}

// Whether the history's last word on the place is what is there now, so that somebody has recorded
// the change already. Secrets cannot be compared: of those each word since `seen` counts.
bool is_recorded(const std::vector<history_entry>& entries, const recorded_difference& change,
                 int64_t seen) {
    for (std::size_t at = entries.size(); at-- > 0;) {
        const history_entry& entry = entries[at];
        for (const recorded_difference& one : entry.differences) {
            if (one.path == change.path && one.attribute == change.attribute) {
                return one.after == change.after &&
                       (!is_secret_path(one.path) || entry.number > seen);
            }
        }
    }
    return false;
}

// Puts what nobody has recorded into the history. `seen`: the number of its last entry when the
// state before was read; the one of its last entry now afterwards. Return: an exit status.
int record_changes(context& tool, const place_state& before, const place_state& now,
                   int64_t& seen) {
    std::vector<history_entry> entries;
    if (!read_history(entries)) {
        return tool.fail_file("history");
    }
    history_entry entry;
    entry.differences = differences(before, now);
    std::erase_if(entry.differences,
                  [&](const recorded_difference& one) { return is_recorded(entries, one, seen); });
    if (!record(std::move(entry), tool)) {
        return tool.fail_file("history");
    }
    if (!read_history(entries)) {
        return tool.fail_file("history");
    }
    seen = entries.empty() ? 0 : entries.back().number;
    return exit_done;
}

bool differ(const place_state& before, const place_state& now) {
    return before.settings != now.settings || before.attributes != now.attributes;
}

// Reads again after a change and does what is asked for. Changes of this tool that are under way
// are waited for, lest they be recorded twice. `count` goes up where something has changed. Return:
// an exit status.
int take_change(context& tool, const watch_options& options, place_state& before, int64_t& seen,
                int& count) {
    const owned_fd lock = options.record ? lock_changes(change_lock_mode::exclusive) : owned_fd();
    place_state now;
    int status = read_now(tool, options.path, now);
    if (status == exit_done && differ(before, now)) {
        ++count;
        status = options.record ? record_changes(tool, before, now, seen)
                                : tell(tool, options, before, now);
    }
    before = std::move(now);
    return status;
}

// What is there at first. A device may be without any document yet; a place that it does not have
// is a slip.
int begin(context& tool, const watch_options& options, place_state& before, int64_t& seen) {
    if (options.path != "*") {
        setting_map settings;
        const int status = read_running(tool, options.path, settings);
        if (status != exit_done) {
            return status;
        }
    }
    const owned_fd lock = options.record ? lock_changes(change_lock_mode::exclusive) : owned_fd();
    const int status = read_now(tool, options.path, before);
    return status == exit_done && options.record ? record_changes(tool, before, before, seen)
                                                 : status;
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
    place_state before;
    int64_t seen = 0;
    int status = begin(tool, options, before, seen);
    if (status == exit_done) {
        context::note("watching");
    }
    int count = 0;
    while (status == exit_done && count != options.count) {
        if (!wait_for_change(watcher.get(), document)) {
            return tool.fail_file(options.directory);
        }
        status = take_change(tool, options, before, seen, count);
    }
    return status;
}

}  // namespace

void add_watch_command(subcommand app, context& tool) {
    const auto options = std::make_shared<watch_options>();
    subcommand command = app.add_subcommand(
        "watch", "print saved changes below PATH, or run a program for each: PATH -- PROGRAM ...");
    command.add_option("PATH", options->path,
                       "where; \"*\" is everywhere, as without it with --record");
    command.add_option("PROGRAM", options->program, "reads the changes from standard input");
    command.add_option("--directory", options->directory, "the service's directory");
    command.add_option("--count", options->count, "end after so many changes");
    command.add_flag("--record", options->record,
                     "put changes that were not made with this tool into the history");
    command.callback([&tool, options] {
        tool.run = [&tool, options] {
            if (options->path.empty() && !options->record) {
                return tool.fail_with(exit_usage, "watch", "PATH is required");
            }
            options->path = options->path.empty() ? "*" : options->path;
            return run_watch(tool, *options);
        };
    });
}

}  // namespace veltrancord::tool
