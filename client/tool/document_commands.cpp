// dump, load, merge, restore, sync, backup.
#include <memory>
#include <string>

#include "change_record.h"
#include "commands.h"
#include "description.h"
#include "dry_run.h"
#include "exchange_file.h"
#include "exit_status.h"
#include "file_name.h"
#include "question.h"
#include "running_service.h"
#include "saved_settings.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

using file_call = int32_t(veltrancord_client* client, const char* file);

int run_dump(context& tool, const std::string& file) {
    if (file == "-") {
        return tool.fail_with(exit_usage, "dump", "needs a file: the service itself writes it");
    }
    return download_to(tool, file);
}

// The service tells a file that it cannot open and one that does not parse alike.
int explain_failed_file(context& tool, const std::string& file, const std::string& name,
                        int32_t result) {
    if (result == VELTRANCORD_UNPARSABLE) {
        std::string text;
        setting_list settings;
        if (!read_input(name, text)) {
            return tool.fail_file(file);
        }
        if (!parse_exchange_text(text, settings)) {
            return tool.fail_with(exit_refused, file, "does not parse as XML");
        }
    }
    return tool.fail_change(file, result);
}

// A command that takes an exchange file and puts other settings in place of those there are.
struct file_command {
    const char* name;
    const char* description;
    const char* question;  // what is asked before it, the file's name following
    file_call* call;
    file_use use;
};

constexpr file_command file_commands[] = {
    {"load", "replace documents by those of an exchange file", "replace documents by those of",
     veltrancord_upload, file_use::load},
    {"merge", "set each value of an exchange file", "overwrite settings with those of",
     veltrancord_sync_file, file_use::merge},
    {"restore", "replace documents by those of an exchange file, but keep the values set now",
     "rebuild documents from", veltrancord_restore, file_use::restore},
};

struct file_options {
    std::string file;
    bool force = false;
};

int run_file(context& tool, const file_command& command, const file_options& options) {
    const std::string& file = options.file;
    const service_file input(file);
    std::string text;
    const bool looks_in = tool.dry_run || is_anything_described(tool);
    const bool must_read =
        tool.dry_run || !options.force;  // the service may where this user may not
    if (input.name().empty() || (looks_in && !read_input(input.name(), text) && must_read)) {
        return tool.fail_file(file);
    }
    int status = check_file_allowed(tool, file, text, command.use, options.force);
    if (status == exit_done && tool.dry_run) {
        return show_file(tool, file, text, command.use);
    }
    if (status == exit_done) {
        status = may_destroy(tool, std::string(command.question) + " " + file);
    }
    if (status == exit_done) {
        status = back_up_first(tool);
    }
    if (status != exit_done) {
        return status;
    }
    change_scope scope;
    scope.places = {"*"};
    return recorded(tool, scope, [&] {
        // cppcheck-suppress AssignmentAddressToInteger ; it does not see what the pointer returns
        const int32_t result = command.call(&tool.client(), input.name().c_str());
        return result < 0 ? explain_failed_file(tool, file, input.name(), result)
                          : static_cast<int>(exit_done);
    });
}

void add_file_command(subcommand app, context& tool, const file_command& one) {
    const auto options = std::make_shared<file_options>();
    subcommand command = app.add_subcommand(one.name, one.description);
    command.add_option("FILE", options->file, "an exchange file; \"-\": standard input").required();
    add_force(command, options->force);
    add_dry_run(command, tool);
    command.callback([&tool, options, &one] {
        tool.run = [&tool, options, &one] { return run_file(tool, one, *options); };
    });
}

int run_backup(context& tool, const std::string& text) {
    const int32_t result = veltrancord_backup(&tool.client(), text.c_str());
    return result < 0 ? tool.fail_change("backup", result) : exit_done;
}

int run_sync(context& tool) {
    const running_service service = find_service(tool);
    held_settings held;
    const bool may_look = service.paths_known && read_held_settings(tool, held) == VELTRANCORD_OK;
    const int32_t result = veltrancord_sync_memory(&tool.client());
    if (result < 0) {
        return tool.fail_change("sync", result);
    }
    save_report report;
    if (may_look && compare_with_files(tool, service.directory, &held, report) < 0) {
        return exit_done;  // saved as far as the service says, and no more can be seen
    }
    return tell_unsaved(tool, report.unsaved);
}

}  // namespace

void add_document_commands(subcommand app, context& tool) {
    const auto dump_file = std::make_shared<std::string>();
    subcommand command =
        app.add_subcommand("dump", "have the service write all documents into one exchange file");
    command.add_option("FILE", *dump_file, "the file to write").required();
    command.callback([&tool, dump_file] {
        tool.run = [&tool, dump_file] { return run_dump(tool, *dump_file); };
    });

    for (const file_command& one : file_commands) {
        add_file_command(app, tool, one);
    }

    command = app.add_subcommand("sync", "save what was changed in memory only");
    command.callback([&tool] { tool.run = [&tool] { return run_sync(tool); }; });

    const auto text = std::make_shared<std::string>();
    command = app.add_subcommand("backup", "run the device's backup script");
    command.add_option("TEXT", *text, "for its command line, where a shell reads it");
    command.callback(
        [&tool, text] { tool.run = [&tool, text] { return run_backup(tool, *text); }; });
}

}  // namespace veltrancord::tool
