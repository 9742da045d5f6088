#include "event_text.h"

#include <array>
#include <cstdio>

#include "text_line.h"

namespace veltrancord::bridge {
namespace {

// type:year:month:day:hour:minute:second:first:text:second
constexpr std::size_t field_count = 10;
enum field : std::size_t { type, year, month, day, hour, minute, second, first, text, last };

bool split(std::string_view entry, std::array<std::string_view, field_count>& fields) {
    for (std::size_t index = 0; index < field_count; ++index) {
        const std::size_t end = entry.find(':');
        if ((end == std::string_view::npos) != (index == last)) {
            return false;
        }
        fields[index] = entry.substr(0, end);
        entry.remove_prefix(end == std::string_view::npos ? entry.size() : end + 1);
    }
    return true;
}

// Return: the time, or nothing where it is none.
std::string time_text(const std::array<std::string_view, field_count>& fields) {
    std::array<unsigned int, 6> numbers{};
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        constexpr unsigned int above_all = 10000;
        if (!read_number(fields[year + index], numbers[index]) || numbers[index] >= above_all) {
            return {};
        }
    }
    std::array<char, 40> shown{};
    std::snprintf(shown.data(), shown.size(), "%04u-%02u-%02uT%02u:%02u:%02u", numbers[0],
                  numbers[1] + 1, numbers[2], numbers[3], numbers[4], numbers[5]);
    return shown.data();
}

}  // namespace

std::string event_text(const queued_event& event) {
    std::string told =
        "number=" + std::to_string(event.number) + "\nlost=" + std::to_string(event.lost) + "\n";
    std::array<std::string_view, field_count> fields;
    const std::string time = split(event.view(), fields) ? time_text(fields) : std::string();
    if (time.empty()) {
        return told.append("entry=").append(event.view()).append("\n");
    }
    return told.append("type=")
        .append(fields[type])
        .append("\ntime=")
        .append(time)
        .append("\nfirst=")
        .append(fields[first])
        .append("\ntext=")
        .append(fields[text])
        .append("\nsecond=")
        .append(fields[last])
        .append("\n");
}

}  // namespace veltrancord::bridge
