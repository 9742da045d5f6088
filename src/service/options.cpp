#include "service/options.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "leaf/bounded_text.h"
#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "store/reply_capacity.h"

namespace veltrancord {

namespace {

constexpr const char* option_letters = "P:E:t:hHLl";

// One less than the fields could hold: start scripts rely on the longer ones being ignored.
constexpr std::size_t longest_path = 62;

// In getopt's own words. It would print them by itself, and wait where nobody reads them.
void report_bad_option(const char* program) {
    const bool known = std::strchr(option_letters, ::optopt) != nullptr;
    print_error("%s: %s -- '%c'\n", program,
                known ? "option requires an argument" : "invalid option", ::optopt);
}

void take_path(char (&field)[64], std::string_view path) {
    if (path.size() <= longest_path) {
        copy_bounded(field, path);
    }
}

}  // namespace

service_options::service_options() {
    copy_bounded(xml_path, default_config_directory);
    copy_bounded(event_log_path, default_event_log_path);
}

int32_t backup_interval_of(const char* text) {
    return std::max(shortest_backup_interval, decimal_number(text));
}

command_line parse_options(int argc, char* const* argv, service_options& options) {
    ::opterr = 0;
    ::optind = 0;  // begins afresh, whatever was parsed before
    for (int letter = 0; (letter = ::getopt(argc, argv, option_letters)) != -1;) {
        switch (letter) {
            case 'P':
                take_path(options.xml_path, ::optarg);
                break;
            case 'E':
                take_path(options.event_log_path, ::optarg);
                break;
            case 't':
                options.backup_interval = backup_interval_of(::optarg);
                break;
            case 'L':
            case 'l':
                options.restart = true;
                break;
            case 'h':
            case 'H':
                return command_line::usage;
            default:
                report_bad_option(argv[0]);
        }
    }
    return command_line::run;
}

void print_usage(const char* program) {
    print_error("%s -t[databse backup time] -P[xml path] -h[help]\n", program);
}

}  // namespace veltrancord
