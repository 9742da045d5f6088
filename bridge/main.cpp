// veltrancord-bridge: a device on an MQTT broker.
#include <signal.h>

#include <cinttypes>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "bridge.h"
#include "certificate.h"
#include "configuration.h"
#include "guard.h"
#include "leaf/message.h"

namespace veltrancord::bridge {
namespace {

constexpr int exit_usage = 2;
constexpr const char* usage =
    "usage: veltrancord-bridge [--configuration FILE] [--check | --metrics]\n"
    "       veltrancord-bridge --version | --help\n"
    "\n"
    "  --configuration FILE  instead of /etc/veltrancord-bridge/bridge.conf\n"
    "  --check               say whether the configuration can be used, and end\n"
    "  --metrics             print until when the device's certificate is good, in the text\n"
    "                        format of Prometheus, and end\n";

enum class task : uint8_t { run, check, metrics };

volatile std::sig_atomic_t g_stop = 0;

void note_stop(int /*signal*/) {
    g_stop = 1;
}

// The signals that end it come in while it waits, and at no other time.
void take_signals() {
    struct sigaction action {};
    sigset_t ending;
    sigemptyset(&ending);
    action.sa_handler = note_stop;
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        (void)sigaction(number, &action, nullptr);
        sigaddset(&ending, number);
    }
    (void)sigprocmask(SIG_BLOCK, &ending, nullptr);
    action.sa_handler = SIG_IGN;
    (void)sigaction(SIGPIPE, &action, nullptr);
}

int print_metrics(const configuration& settings) {
    std::time_t not_after = 0;
    const std::string problem = settings.has_tls() ? read_not_after(settings.certificate, not_after)
                                                   : "there is no certificate";
    if (!problem.empty()) {
        print_error("veltrancord-bridge: %s\n", problem.c_str());
        return EXIT_FAILURE;
    }
    print_output(
        "# HELP veltrancord_certificate_expiry_timestamp_seconds Until when the device's "
        "certificate is good, in seconds since the epoch.\n"
        "# TYPE veltrancord_certificate_expiry_timestamp_seconds gauge\n"
        "veltrancord_certificate_expiry_timestamp_seconds %" PRId64 "\n",
        static_cast<int64_t>(not_after));
    return EXIT_SUCCESS;
}

int run(const std::string& file, task wanted) {
    configuration settings;
    const std::string problem = load_configuration(file, settings);
    if (!problem.empty()) {
        print_error("veltrancord-bridge: %s\n", problem.c_str());
        return EXIT_FAILURE;
    }
    if (wanted == task::metrics) {
        return print_metrics(settings);
    }
    if (wanted == task::check) {
        print_output("%s: %s\n", settings.device.c_str(),
                     settings.may_write() ? "takes changes" : "reports, and takes no changes");
        return EXIT_SUCCESS;
    }
    take_signals();
    bridge one(settings, guarded_setup(settings.service_socket, settings.documents));
    return one.run(g_stop) ? EXIT_SUCCESS : EXIT_FAILURE;
}

int say_usage() {
    print_error_text(usage);
    return exit_usage;
}

}  // namespace
}  // namespace veltrancord::bridge

int main(int count, char** words) {
    using namespace veltrancord::bridge;
    veltrancord::prepare_messages();
    std::string file = default_configuration;
    task wanted = task::run;
    for (int index = 1; index < count; ++index) {
        const std::string_view word = words[index];
        if (word == "--guard" && count == 5) {
            return run_guard(words[2], words[3], words[4]);
        }
        if (word == "--help" || word == "--version") {
            veltrancord::print_output(
                "%s", word == "--help" ? usage : "veltrancord-bridge " VELTRANCORD_VERSION "\n");
            return EXIT_SUCCESS;
        }
        if (word == "--configuration" && index + 1 < count) {
            file = words[++index];
        } else if (word == "--check") {
            wanted = task::check;
        } else if (word == "--metrics") {
            wanted = task::metrics;
        } else {
            return say_usage();
        }
    }
    return run(file, wanted);
}
