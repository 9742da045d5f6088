#include "setting_writing.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "change_record.h"
#include "creation.h"
#include "description.h"
#include "dry_run.h"
#include "exit_status.h"
#include "saved_settings.h"
#include "service.h"

namespace veltrancord::tool {

void add_writing_options(subcommand command, context& tool, writing_options& options) {
    command.add_flag("--create", options.create, "also settings that are not there yet");
    add_force(command, options.force);
    command.add_flag("--memory", options.memory_only, "in memory only, until \"sync\"");
    add_dry_run(command, tool);
}

int write_checked(context& tool, const setting_list& settings, const writing_options& options,
                  const std::string& file) {
    int status = check_allowed(tool, settings, options.force, file);
    std::vector<std::string> created;
    if (status == exit_done) {
        status = check_creation(tool, settings, options.create, created);
    }
    if (status != exit_done) {
        return status;
    }
    if (tool.dry_run) {
        return show_writing(tool, settings);
    }
    change_scope scope;
    scope.settings = paths_of(settings);
    scope.memory = options.memory_only;
    status = recorded(tool, scope, [&] {
        const int made = make_documents(tool, created);
        if (made != exit_done) {
            return made;
        }
        const int32_t result = write_settings(tool, settings, options.memory_only);
        if (result < 0) {
            return explain_failed_write(tool, settings, result);
        }
        tell_created(created);
        (void)tool.print_for_programs({{"written", result}});
        return static_cast<int>(exit_done);
    });
    return status != exit_done || options.memory_only ? status : check_saved(tool, settings);
}

}  // namespace veltrancord::tool
