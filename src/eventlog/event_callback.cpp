#include "eventlog/event_callback.h"

#include <sys/stat.h>

#include <array>
#include <charconv>
#include <string>

#include "eventlog/notification.h"
#include "eventlog/stored_settings.h"
#include "leaf/bounded_text.h"
#include "leaf/child_program.h"
#include "leaf/message.h"
#include "leaf/trusted_program.h"

namespace veltrancord {

namespace {

constexpr const char* script = "/tmp/trigger/EventLogCallBack.sh";

// It and its directory may come and go at any time, so they are looked for at each event. What is
// found there is in a directory.
bool has_script() {
    struct stat found {};
    return ::stat(script, &found) == 0;
}

struct script_argument {
    char text[32] = {};

    explicit script_argument(const char* value) { copy_bounded(text, value); }
    explicit script_argument(int32_t value) { std::to_chars(text, text + sizeof text - 1, value); }
};

}  // namespace

int32_t trigger_event_callback(int32_t type, const char* time_text, uint8_t first_detail,
                               const char* detail_text, uint8_t second_detail) {
    stored_notification_settings settings;
    if (!should_notify(type, settings) || !has_script() || !is_trusted_program(script)) {
        return 1;
    }
    std::string path = script;
    std::array<script_argument, 5> fields = {
        script_argument(type), script_argument(time_text), script_argument(int32_t{first_detail}),
        script_argument(detail_text), script_argument(int32_t{second_detail})};
    char* arguments[] = {path.data(),    fields[0].text, fields[1].text, fields[2].text,
                         fields[3].text, fields[4].text, nullptr};
    char search_path[] = "PATH=/usr/bin:/usr/sbin:/bin:/sbin";
    char shell[] = "SHELL=/bin/sh";
    char home[] = "HOME=/home";
    char* environment[] = {search_path, shell, home, nullptr};
    const pid_t child = start_program({.path = script,
                                       .arguments = arguments,
                                       .environment = environment,
                                       .report_exec_failure = true});
    if (child < 0) {
        print_reason("fork");
        return 0;
    }
    return 1;
}

}  // namespace veltrancord
