// edit: a subtree in the user's editor.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "change_record.h"
#include "commands.h"
#include "creation.h"
#include "description.h"
#include "difference.h"
#include "dry_run.h"
#include "exit_status.h"
#include "leaf/owned_fd.h"
#include "pager.h"
#include "question.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

struct edit_options {
    std::string path;
    bool create = false;
    bool force = false;
};

// A file that only its owner may read, gone with this object.
class private_file {
  public:
    private_file() {
        const char* folder = std::getenv("TMPDIR");
        name_ = std::string(folder != nullptr ? folder : "/tmp") + "/veltrancordctl-XXXXXX";
        fd_.reset(mkostemp(name_.data(), O_CLOEXEC));
    }
    ~private_file() { (void)unlink(name_.c_str()); }
    private_file(const private_file&) = delete;
    private_file& operator=(const private_file&) = delete;
    private_file(private_file&&) = delete;
    private_file& operator=(private_file&&) = delete;

    [[nodiscard]] bool write(const std::string& text) {
        return fd_ && write_whole(fd_.get(), text) && fd_.close() == 0;
    }
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    std::string name_;
    owned_fd fd_;
};

bool run_editor(const std::string& file) {
    const char* editor = std::getenv("VISUAL");
    if (editor == nullptr || *editor == '\0') {
        editor = std::getenv("EDITOR");
    }
    const std::string command = std::string(editor != nullptr && *editor != '\0' ? editor : "vi") +
                                " " + shell_quoted(file);
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): the user's editor
    return status == 0;
}

setting_map shown(const context& tool, const setting_map& settings) {
    setting_map result;
    for (const auto& [path, value] : settings) {
        if (value.find('\n') == std::string::npos) {
            result[path] = shown_value({path, value}, tool.reveal);
        }
    }
    return result;
}

// What the editor has left.
struct edited_text {
    setting_map settings;
    line_map lines;
};

int write_edited(context& tool, const setting_map& before, const edited_text& after,
                 const edit_options& options) {
    setting_list lines;
    std::vector<setting_change> changes;
    std::size_t removed = 0;
    for (const setting_change& change : compare(before, after.settings)) {
        if (change.after == nullptr) {
            ++removed;
        } else {
            changes.push_back(change);
            lines.push_back({change.path, *change.after});
        }
    }
    if (removed > 0) {
        context::note(std::to_string(removed) +
                      " settings are no longer in the text; they stay (use \"unset\")");
    }
    if (lines.empty()) {
        context::note("nothing has changed");
        return exit_done;
    }
    std::vector<std::string> created;
    int checked = check_allowed(tool, written_settings(changes, after.lines), options.force);
    if (checked == exit_done) {
        checked = check_creation(tool, new_settings(changes), options.create, created);
    }
    if (checked != exit_done) {
        return checked;
    }
    tool.print(difference_text(tool, changes));
    (void)tool.finish(exit_done);
    if (tool.dry_run) {
        return end_dry_run();
    }
    if (!tool.assume_yes && !asked_yes("write this?")) {
        context::note("nothing was done");
        return exit_cancelled;
    }
    change_scope scope;
    scope.settings = paths_of(lines);
    return recorded(tool, scope, [&] {
        const int made = make_documents(tool, created);
        if (made != exit_done) {
            return made;
        }
        const int32_t result = write_settings(tool, lines, false);
        if (result < 0) {
            return explain_failed_write(tool, lines, result);
        }
        tell_created(created);
        return static_cast<int>(exit_done);
    });
}

int run_edit(context& tool, const edit_options& options) {
    setting_map running;
    const int status = read_running(tool, options.path, running);
    if (status != exit_done) {
        return status;
    }
    const setting_map before = shown(tool, running);
    std::string text = "# One setting a line. Only lines that are changed or new are written.\n";
    for (const auto& [key, value] : before) {
        text += key + "=";
        text += value + "\n";
    }
    private_file file;
    if (!file.write(text)) {
        return tool.fail_with(exit_failed, file.name(), std::strerror(errno));
    }
    int read = exit_done;
    do {
        if (!run_editor(file.name())) {
            return tool.fail_with(exit_failed, file.name(),
                                  "the editor has failed; nothing was done");
        }
        edited_text after;
        read = read_settings_file(tool, file.name(), after.settings, &after.lines);
        if (read == exit_done) {
            read = write_edited(tool, before, after, options);
            if (read != exit_not_found && read != exit_not_allowed) {
                return read;
            }
        }
    } while (asked_yes("edit it again?"));
    return read;
}

}  // namespace

void add_edit_command(subcommand app, context& tool) {
    const auto options = std::make_shared<edit_options>();
    subcommand command = app.add_subcommand("edit", "change the settings below PATH in an editor");
    command.add_option("PATH", options->path, "where").required();
    command.add_flag("--create", options->create, "also settings that are not there yet");
    add_force(command, options->force);
    add_dry_run(command, tool);
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_edit(tool, *options); }; });
}

}  // namespace veltrancord::tool
