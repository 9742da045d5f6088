// Log entries as text: what is readable is written again as it was read.
#include <ctime>
#include <string>
#include <vector>

#include "eventlog/entry_text.h"
#include "eventlog/log_reader.h"
#include "fuzz_target.h"
#include "leaf/decimal_number.h"
#include "support/log_model.h"

namespace veltrancord::fuzz {
namespace {

bool equal(const log_record& a, const log_record& b) {
    log_record timeless = a;
    timeless.time = b.time;
    return pack_log_record(timeless) == pack_log_record(b);
}

void check_fields(const std::vector<std::string>& fields, const log_record& record) {
    const uint8_t numbers[] = {record.month,        record.day,    record.hour,
                               record.minute,       record.second, record.first_detail,
                               record.second_detail};
    std::size_t at = 2;
    for (const uint8_t number : numbers) {
        at += at == 8 ? 1 : 0;  // the detail text
        require(number == static_cast<uint8_t>(decimal_number(fields[at])), "a field's number");
        ++at;
    }
    require(record.type == decimal_number(fields[0]), "an entry's type");
    require(record.detail() == fields[8].substr(0, 15), "an entry's detail text");
}

void check_text(std::string_view text) {
    log_record record;
    const std::vector<std::string> fields = test::log_model::fields_of(text);
    const bool readable = decode_log_entry(text, record);
    require(readable == (fields.size() == 10), "an entry has ten fields");
    if (!readable) {
        return;
    }
    check_fields(fields, record);
    require(!record.detail().empty() && record.detail().find(':') == std::string_view::npos,
            "a readable detail text");
    std::tm time = {};
    time.tm_year = record.year + 100;
    time.tm_mon = record.month;
    time.tm_mday = record.day;
    time.tm_hour = record.hour;
    time.tm_min = record.minute;
    time.tm_sec = record.second;
    const log_entry_text again = format_log_entry(record, format_log_time(time));
    require(again.view().size() < sizeof again.text, "the bound of an entry");
    log_record back;
    require(decode_log_entry(again.view(), back) && equal(record, back), "back again");
}

// Any record makes a text within its bound; one without a ":" in its detail reads back.
void check_record(std::string_view bytes) {
    const log_record record = unpack_log_record(bytes);
    require(equal(unpack_log_record({pack_log_record(record).data(), log_record_size}), record),
            "a packed record");
    const log_entry_text text = format_log_entry(record, local_log_time(record.time));
    log_record back;
    const bool plain =
        !record.detail().empty() && record.detail().find(':') == std::string_view::npos;
    if (plain) {
        require(decode_log_entry(text.view(), back), "a plain entry reads back");
        require(back.type == record.type && back.detail() == record.detail() &&
                    back.first_detail == record.first_detail &&
                    back.second_detail == record.second_detail,
                "what reads back");
    }
}

}  // namespace

void try_input(input_reader& input) {
    const std::string_view text = input.rest();
    check_text(up_to_nul(text));
    check_record(text);
    log_request request;
    static_cast<void>(parse_log_request(up_to_nul(text), request));
}

}  // namespace veltrancord::fuzz
