// stats: the service in numbers.
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "exit_status.h"
#include "service_numbers.h"

namespace veltrancord::tool {
namespace {

struct stats_options {
    examined_places places;
    bool prometheus = false;
};

int run_stats(context& tool, const stats_options& options) {
    const examination found = examine(tool, options.places);
    const std::vector<service_number> numbers = numbers_of(found);
    const int status = found.alive ? exit_done : exit_unreachable;
    if (options.prometheus) {
        tool.print(prometheus_text(numbers, service_version(found.service)));
        return status;
    }
    const json object = numbers_json(numbers);
    if (!tool.print_for_programs(object)) {
        for (const auto& [name, value] : object.items()) {
            tool.print(name + " " + value.dump());
            tool.end_line();
        }
    }
    return status;
}

}  // namespace

void add_stats_command(subcommand app, context& tool) {
    const auto options = std::make_shared<stats_options>();
    subcommand command = app.add_subcommand("stats", "print the service in numbers");
    command.add_flag("--prometheus", options->prometheus, "in the text format of Prometheus");
    command.add_option("--directory", options->places.directory, "the service's directory");
    command.add_option("--backup-file", options->places.backup_file,
                       "what the device's backup script writes: the time of the last backup");
    command.callback(
        [&tool, options] { tool.run = [&tool, options] { return run_stats(tool, *options); }; });
}

}  // namespace veltrancord::tool
