#include "eventlog/log_record.h"

#include <algorithm>
#include <cstring>

#include "leaf/bounded_text.h"
#include "leaf/byte_order.h"

namespace veltrancord {

namespace {

// Where the fields begin.
enum offset : std::size_t {
    type_offset = 0,
    year_offset = 4,
    month_offset = 5,
    day_offset = 6,
    hour_offset = 7,
    minute_offset = 8,
    second_offset = 9,
    first_detail_offset = 10,
    detail_text_offset = 11,
    second_detail_offset = 27,
    time_offset = 28,
};

const unsigned char* field(const log_record_bytes& bytes, std::size_t at) {
    return reinterpret_cast<const unsigned char*>(bytes.data() + at);
}

unsigned char* field(log_record_bytes& bytes, std::size_t at) {
    return reinterpret_cast<unsigned char*>(bytes.data() + at);
}

}  // namespace

log_record unpack_log_record(std::string_view bytes) {
    log_record_bytes whole{};
    std::copy_n(bytes.data(), std::min(bytes.size(), whole.size()), whole.data());

    log_record record;
    record.type = packed_log_type(whole);
    record.year = *field(whole, year_offset);
    record.month = *field(whole, month_offset);
    record.day = *field(whole, day_offset);
    record.hour = *field(whole, hour_offset);
    record.minute = *field(whole, minute_offset);
    record.second = *field(whole, second_offset);
    record.first_detail = *field(whole, first_detail_offset);
    const char* const text = whole.data() + detail_text_offset;
    copy_bounded(record.detail_text, {text, ::strnlen(text, sizeof record.detail_text)});
    record.second_detail = *field(whole, second_detail_offset);
    record.time = static_cast<int32_t>(load_le32(field(whole, time_offset)));
    return record;
}

log_record_bytes pack_log_record(const log_record& record) {
    log_record_bytes bytes{};
    store_le32(field(bytes, type_offset), static_cast<uint32_t>(record.type));
    *field(bytes, year_offset) = record.year;
    *field(bytes, month_offset) = record.month;
    *field(bytes, day_offset) = record.day;
    *field(bytes, hour_offset) = record.hour;
    *field(bytes, minute_offset) = record.minute;
    *field(bytes, second_offset) = record.second;
    *field(bytes, first_detail_offset) = record.first_detail;
    std::memcpy(bytes.data() + detail_text_offset, record.detail_text, sizeof record.detail_text);
    *field(bytes, second_detail_offset) = record.second_detail;
    store_le32(field(bytes, time_offset), static_cast<uint32_t>(record.time));
    return bytes;
}

int32_t packed_log_type(const log_record_bytes& bytes) {
    return static_cast<int32_t>(load_le32(field(bytes, type_offset)));
}

}  // namespace veltrancord
