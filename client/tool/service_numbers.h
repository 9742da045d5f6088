// The service in numbers, for programs that watch it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context.h"
#include "kept_log.h"
#include "running_service.h"
#include "saved_settings.h"

namespace veltrancord::tool {

// Where to look; what is empty is the service's own, or the default where that is not known.
struct examined_places {
    std::string directory;
    std::string log_file;
    std::string backup_file;  // that the device's backup script writes
};

// What is found out once, by one request each.
struct examination {
    running_service service;
    examined_places places;  // none empty but backup_file
    bool alive = false;
    std::string failure;  // why it is not
    double answer_seconds = 0;
    std::optional<int32_t> log_capacity;
    int32_t log_entries = 0;
    std::optional<save_report> saves;         // nothing where the settings cannot be read
    std::optional<std::vector<int>> clients;  // see clients_of_socket()
};

// Asks the service and the system.
examination examine(context& tool, const examined_places& asked);

struct service_number {
    std::string name;      // after the conventions of Prometheus, "veltrancord_" being left out
    std::string help;      // a sentence
    bool counter = false;  // else it goes up and down
    std::string process;   // whose it is: "supervisor", "worker" or nothing
    double value = 0;
};

// What is known, in a fixed order; what is not known is left out. "up" always stands first.
std::vector<service_number> numbers_of(const examination& found);

// One object: name to number, the process before the names of its own.
json numbers_json(const std::vector<service_number>& numbers);

// The text format of Prometheus.
std::string prometheus_text(const std::vector<service_number>& numbers, const std::string& version);

// The version of the program that runs. Empty: its file may not be read, or does not tell.
std::string service_version(const running_service& service);

}  // namespace veltrancord::tool
