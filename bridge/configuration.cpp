#include "configuration.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "certificate.h"
#include "text_line.h"
#include "topics.h"
#include "trusted_file.h"

namespace veltrancord::bridge {
namespace {

struct number_setting {
    std::string_view name;
    int configuration::*member;
    int least;
    int most;
};
constexpr std::array<number_setting, 4> number_settings = {
    {{"port", &configuration::port, 0, 65535},
     {"keep-alive", &configuration::keep_alive, 5, 3600},
     {"settle", &configuration::settle, 0, 60},
     {"report-interval", &configuration::report_interval, 1, 3600}}};

using text_setting = std::pair<std::string_view, std::string configuration::*>;
constexpr std::array<text_setting, 11> text_settings = {
    {{"host", &configuration::host},
     {"ca", &configuration::ca},
     {"certificate", &configuration::certificate},
     {"private-key", &configuration::private_key},
     {"device", &configuration::device},
     {"socket", &configuration::service_socket},
     {"documents", &configuration::documents},
     {"log", &configuration::log_file},
     {"state", &configuration::state},
     {"memory", &configuration::memory},
     {"descriptions", &configuration::descriptions}}};

std::string at_line(const std::string& path, int number, std::string_view what) {
    return path + ": line " + std::to_string(number) + ": " + std::string(what);
}

// Reads patterns, one a line.
std::string read_patterns(const std::string& path, path_rules& rules) {
    std::string text;
    std::string problem = read_trusted_file(path, text);
    std::string_view rest = text;
    std::string_view line;
    for (int number = 1; problem.empty() && next_line(rest, line); ++number) {
        if (!line.empty() && line.front() != '#' && !rules.add(line)) {
            problem = at_line(path, number, "no path and no path with \".*\" behind it");
        }
    }
    return problem;
}

std::string read_key(const std::string& path, operator_keys& keys) {
    std::string text;
    std::string problem = read_trusted_file(path, text);
    if (problem.empty() && !keys.add(text)) {
        problem = path + ": no public key of Ed25519, or a third one";
    }
    return problem;
}

// Return: why the line cannot be used, or nothing.
std::string take(const named_value& line, configuration& settings) {
    const auto* const text =
        std::find_if(text_settings.begin(), text_settings.end(),
                     [&](const text_setting& one) { return one.first == line.name; });
    if (text != text_settings.end()) {
        settings.*(text->second) = line.value;
        return {};
    }
    const auto* const number =
        std::find_if(number_settings.begin(), number_settings.end(),
                     [&](const number_setting& one) { return one.name == line.name; });
    if (number != number_settings.end()) {
        int& value = settings.*(number->member);
        return read_number(line.value, value) && value >= number->least && value <= number->most
                   ? std::string()
                   : std::string(number->name) + ": not " + std::to_string(number->least) + " to " +
                         std::to_string(number->most);
    }
    if (line.name == "report") {
        return settings.reported.add(line.value)
                   ? ""
                   : "report: no path and no path with \".*\" behind it";
    }
    if (line.name == "operator-key") {
        return read_key(std::string(line.value), settings.keys);
    }
    if (line.name == "writable") {
        return read_patterns(std::string(line.value), settings.writable);
    }
    return std::string(line.name) + ": unknown";
}

bool is_this_machine(const configuration& settings) {
    return settings.host == "127.0.0.1" || settings.host == "::1" ||
           (settings.host.starts_with('/') && settings.port == 0);
}

std::string check(configuration& settings) {
    if (settings.host.empty()) {
        return "host is missing";
    }
    if (settings.ca.empty() != settings.certificate.empty() ||
        settings.ca.empty() != settings.private_key.empty()) {
        return "ca, certificate and private-key go together";
    }
    if (!settings.has_tls()) {
        if (!is_this_machine(settings)) {
            return "without ca, certificate and private-key the broker must be on this machine";
        }
    } else if (!settings.device.empty()) {
        return "device is the common name of the certificate";
    } else {
        std::string problem = read_common_name(settings.certificate, settings.device);
        if (!problem.empty()) {
            return problem;
        }
    }
    return is_device_name(settings.device) ? std::string()
                                           : "device: no name of letters, digits, \".\", \"_\" and "
                                             "\"-\"";
}

}  // namespace

std::string load_configuration(const std::string& path, configuration& settings) {
    settings = {};
    std::string text;
    std::string problem = read_trusted_file(path, text);
    std::string_view rest = text;
    std::string_view line;
    for (int number = 1; problem.empty() && next_line(rest, line); ++number) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        named_value parts;
        problem = split_line(line, parts) ? take(parts, settings) : "no \"name=value\"";
        if (!problem.empty()) {
            problem = at_line(path, number, problem);
        }
    }
    if (problem.empty()) {
        problem = check(settings);
        problem = problem.empty() ? problem : path + ": " + problem;
    }
    return problem;
}

}  // namespace veltrancord::bridge
