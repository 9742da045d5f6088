#include "eventlog/entry_text.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

#include "leaf/bounded_text.h"
#include "leaf/decimal_number.h"

namespace veltrancord {

namespace {

constexpr std::size_t field_count = 10;
using entry_fields = std::array<std::string_view, field_count>;

bool split_fields(std::string_view text, entry_fields& fields) {
    std::size_t found = 0;
    std::size_t at = text.find_first_not_of(':');
    while (at != std::string_view::npos) {
        if (found == field_count) {
            return false;
        }
        const std::size_t end = std::min(text.find(':', at), text.size());
        fields[found++] = text.substr(at, end - at);
        at = text.find_first_not_of(':', end);
    }
    return found == field_count;
}

uint8_t low_byte(std::string_view field) {
    return static_cast<uint8_t>(decimal_number(field));
}

// Modulo 256 adding 48 is taking 2000 away.
uint8_t year_byte(std::string_view field) {
    return static_cast<uint8_t>(static_cast<uint32_t>(decimal_number(field)) + 48U);
}

}  // namespace

log_time_text format_log_time(const std::tm& broken_down) {
    log_time_text time;
    // A year may lie beyond 32 bits once the 1900 are added.
    std::snprintf(time.text, sizeof time.text, "%" PRId64 ":%d:%d:%d:%d:%d",
                  int64_t{broken_down.tm_year} + 1900, broken_down.tm_mon, broken_down.tm_mday,
                  broken_down.tm_hour, broken_down.tm_min, broken_down.tm_sec);
    return time;
}

log_time_text local_log_time(int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm broken_down{};
    ::tzset();
    if (::localtime_r(&time, &broken_down) == nullptr) {
        broken_down = std::tm{};
    }
    return format_log_time(broken_down);
}

log_entry_text format_log_entry(const log_record& record, const log_time_text& time) {
    log_entry_text entry;
    std::snprintf(entry.text, sizeof entry.text, "%d:%s:%d:%s:%d", record.type, time.text,
                  record.first_detail, record.detail_text, record.second_detail);
    return entry;
}

bool decode_log_entry(std::string_view text, log_record& record) {
    entry_fields fields;
    if (!split_fields(text, fields)) {
        return false;
    }
    record.type = decimal_number(fields[0]);
    record.year = year_byte(fields[1]);
    record.month = low_byte(fields[2]);
    record.day = low_byte(fields[3]);
    record.hour = low_byte(fields[4]);
    record.minute = low_byte(fields[5]);
    record.second = low_byte(fields[6]);
    record.first_detail = low_byte(fields[7]);
    copy_bounded(record.detail_text, fields[8]);
    record.second_detail = low_byte(fields[9]);
    record.time = 0;
    return true;
}

}  // namespace veltrancord
