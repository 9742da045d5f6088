#include "eventlog/notification.h"

#include <strings.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <string>
#include <vector>

#include "encoding/escape.h"
#include "eventlog/stored_settings.h"
#include "leaf/bounded_text.h"
#include "leaf/child_program.h"
#include "leaf/decimal_number.h"
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

constexpr std::size_t longest_name = 127;
constexpr std::size_t longest_bits = 8;

bool begins_with(std::string_view value, std::string_view word) {
    return value.size() >= word.size() && strncasecmp(value.data(), word.data(), word.size()) == 0;
}

std::string definition_key(int32_t number, std::string_view field) {
    return std::string("Notification.Log.BitDefine.Def")
        .append(std::to_string(number))
        .append(field);
}

// The bits of a definition; 0 when it is absent or has no "x".
uint32_t definition_bits(int32_t number, notification_settings& settings) {
    const std::string_view bits = settings.value(definition_key(number, ".Bit"));
    const std::size_t x = bits.find('x');
    return x != std::string_view::npos ? parse_event_bits(bits.substr(x + 1)) : 0;
}

bool is_wanted(std::string_view branch, std::string_view name, notification_settings& settings) {
    return is_switched_on(settings.value(std::string(branch).append(name)));
}

}  // namespace

uint32_t parse_event_bits(std::string_view digits) {
    if (digits.empty() || digits.size() > longest_bits) {
        print_error("Data is overflow!!\n");
        return 0;
    }
    uint32_t bits = 0;
    for (const char digit : digits) {
        const int32_t value = hex_digit_value(digit);
        bits = bits << 4U | (value > 0 ? static_cast<uint32_t>(value) : 0U);
    }
    return bits;
}

bool is_switched_on(std::string_view value) {
    return begins_with(value, "ON") || begins_with(value, "YES");
}

bool should_notify(int32_t type, notification_settings& settings) {
    const int32_t defined = decimal_number(settings.value("Notification.Log.BitDefine.Num"));
    const std::vector<int32_t> numbers = settings.definitions(defined);
    if (numbers.empty()) {
        return true;
    }
    const bool email_on = is_switched_on(settings.value("Notification.Log.Email.Action"));
    const bool push_on = is_switched_on(settings.value("Notification.Log.Push.Action"));

    bool matched = false;
    bool email_hit = false;
    bool push_hit = false;
    for (const int32_t number : numbers) {
        if ((static_cast<uint32_t>(type) & definition_bits(number, settings)) == 0) {
            continue;
        }
        matched = true;
        const std::string name(
            settings.value(definition_key(number, ".Name")).substr(0, longest_name));
        if (name.empty()) {
            continue;
        }
        email_hit |= email_on && is_wanted("Notification.Log.Email.Events.", name, settings);
        push_hit |= push_on && is_wanted("Notification.Log.Push.Events.", name, settings);
    }
    if (push_hit && !email_hit) {
        return settings.push_gate() >= 1;
    }
    return email_hit || !matched;
}

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
