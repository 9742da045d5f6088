// Whether somebody wants to hear of an event, a decision from settings, and telling him.
//
// The settings name bits of the event type and say, for each name, whether it is wanted by e-mail
// and by push. docs/eventlog.md lists them. Nothing is remembered between events, so a changed
// setting counts from the next event on.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace veltrancord {

// Where the decision gets its facts from.
class notification_settings {
  public:
    notification_settings() = default;
    notification_settings(const notification_settings&) = delete;
    notification_settings& operator=(const notification_settings&) = delete;
    virtual ~notification_settings() = default;

    // The value of a setting by its dotted path; empty when it is absent. Valid until the next
    // call.
    [[nodiscard]] virtual std::string_view value(std::string_view path) = 0;

    // The numbers n, from 1 to `highest`, for which there may be a definition "Def<n>", each once.
    // Numbers without one may be left out, so that the decision costs what there is and not what
    // the setting for their number claims.
    [[nodiscard]] virtual std::vector<int32_t> definitions(int32_t highest) = 0;

    // The number in the push gate file; 0 when there is none.
    [[nodiscard]] virtual int32_t push_gate() = 0;
};

// Reads the hexadecimal digits behind the "x" of a bit setting. Each of the 1 to 8 characters
// shifts the bits by 4, and one that is no digit adds nothing. Reports an empty or longer text on
// standard error.
//
// Return: the bits; 0 for an empty or longer text.
[[nodiscard]] uint32_t parse_event_bits(std::string_view digits);

// Whether a switch is on: its value begins with "ON" or "YES" in any case.
[[nodiscard]] bool is_switched_on(std::string_view value);

// The decision for an event of that type.
//
// Return: true when e-mail or push wants the event, or when no definition has a bit of its type:
// events that nobody has defined are never suppressed.
[[nodiscard]] bool should_notify(int32_t type, notification_settings& settings);

// Starts "/tmp/trigger/EventLogCallBack.sh" with the type, the time text, the first detail value,
// the detail text and the second detail value as arguments, if the settings want the event and the
// script is there and nobody else's (leaf/trusted_program.h). Does not wait for it. Each argument
// is at most 31 characters long. Server thread only. Reports a failing fork on standard error; the
// script's process reports a failing execve.
//
// Return: 1, or 0 when the fork failed.
int32_t trigger_event_callback(int32_t type, const char* time_text, uint8_t first_detail,
                               const char* detail_text, uint8_t second_detail);

}  // namespace veltrancord
