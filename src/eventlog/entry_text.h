// Log entries as text: how the log document keeps them.
//
// An entry is "type:year:month:day:hour:minute:second:first detail:detail text:second detail", for
// example "4:2024:0:31:23:5:9:3:abc:1". Nothing is escaped. So an empty detail text, or one with a
// ":" between other characters, makes a text that no longer has ten fields: such an entry is kept,
// takes its place in the ring and starts notifications, but is never read back. Escaping it would
// make logs that the device's other readers of the file do not understand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "eventlog/log_record.h"

namespace veltrancord {

// "year:month:day:hour:minute:second", the year in full, the month from 0.
struct log_time_text {
    char text[32] = {};
    [[nodiscard]] std::string_view view() const { return text; }
};

[[nodiscard]] log_time_text format_log_time(const std::tm& broken_down);

// The local time at `seconds` since the epoch. The zone's settings are looked at each time: a
// device that is moved to another zone logs in the new one at once. A time that the calendar
// cannot express counts as all zeros.
[[nodiscard]] log_time_text local_log_time(int64_t seconds);

// Longest: a type of 11 characters, a time of 31, three and three digits, 15 characters of detail.
struct log_entry_text {
    char text[96] = {};
    [[nodiscard]] std::string_view view() const { return text; }
};

// Of `record` the type, the detail values and the detail text are used.
[[nodiscard]] log_entry_text format_log_entry(const log_record& record, const log_time_text& time);

// Takes a stored text apart. Fields are separated by one or more ":", as if by strtok. Numbers are
// read as far as they are decimal, and their low 8 bits kept where the field has no more; a detail
// text over 15 characters is cut.
//
// Return: false unless there are exactly ten fields; `record` is then undefined.
[[nodiscard]] bool decode_log_entry(std::string_view text, log_record& record);

}  // namespace veltrancord
