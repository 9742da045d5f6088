// The command line.
#pragma once

#include <cstdint>

namespace veltrancord {

inline constexpr const char* default_event_log_path = "/mnt/database/eventlog/log";
inline constexpr int32_t shortest_backup_interval = 300;  // seconds

// What the command line sets; filled before any fork and not changed afterwards.
struct service_options {
    service_options();

    char xml_path[64];  // directory of the configuration; this and the next: NUL to the end
    char event_log_path[64];
    int32_t backup_interval = shortest_backup_interval;  // seconds
    bool restart = false;                                // whenever the worker ends
};

enum class command_line {
    run,
    usage,  // the usage was asked for; what stands behind is not looked at
};

// Reads the options into `options`, whose defaults stay where an option is absent or not usable. A
// path of more than 62 characters is ignored without a word, an unknown option after getopt's own
// message. Main thread.
[[nodiscard]] command_line parse_options(int argc, char* const* argv, service_options& options);

// The backup interval that a -t value means: its leading decimal number, but never less than
// shortest_backup_interval.
[[nodiscard]] int32_t backup_interval_of(const char* text);

// Prints the usage on standard error.
void print_usage(const char* program);

}  // namespace veltrancord
