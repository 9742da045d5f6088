#include "eventlog/entry_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

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

// Fills a text field from its front. What does not fit is cut, as everywhere in such fields.
template <std::size_t Size>
class field_text {
  public:
    explicit field_text(char (&field)[Size]) : field_(field) {}

    void append(std::string_view text) {
        const std::size_t fitting = std::min(text.size(), Size - 1 - length_);
        std::memcpy(field_ + length_, text.data(), fitting);
        length_ += fitting;
        field_[length_] = '\0';
    }

    void number(int64_t number) {
        char digits[24];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        append(std::string_view(digits, end));
    }

  private:
    char (&field_)[Size];
    std::size_t length_ = 0;
};

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
    field_text text(time.text);
    // A year may lie beyond 32 bits once the 1900 are added.
    text.number(int64_t{broken_down.tm_year} + 1900);
    for (const int part : {broken_down.tm_mon, broken_down.tm_mday, broken_down.tm_hour,
                           broken_down.tm_min, broken_down.tm_sec}) {
        text.append(":");
        text.number(part);
    }
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
    field_text text(entry.text);
    text.number(record.type);
    text.append(":");
    text.append(time.view());
    text.append(":");
    text.number(record.first_detail);
    text.append(":");
    text.append(record.detail());
    text.append(":");
    text.number(record.second_detail);
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
