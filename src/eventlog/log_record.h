// The event record: 32 bytes that clients send and receive.
//
// docs/eventlog.md lists the bytes one by one. The two detail values and the bits of the type mean
// something to the clients only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veltrancord {

inline constexpr std::size_t log_record_size = 32;

// A record as it goes over the wire.
using log_record_bytes = std::array<char, log_record_size>;

struct log_record {
    int32_t type = 0;   // also the bits that a reader's mask and the notification settings select
    uint8_t year = 0;   // since 2000, modulo 256
    uint8_t month = 0;  // 0 is January
    uint8_t day = 0;    // 1 to 31
    uint8_t hour = 0;   // 0 to 23
    uint8_t minute = 0;
    uint8_t second = 0;
    uint8_t first_detail = 0;
    char detail_text[16] = {};  // always NUL-terminated, NULs behind the text
    uint8_t second_detail = 0;
    int32_t time = 0;  // seconds since the epoch; only writelogwithtime reads it

    [[nodiscard]] std::string_view detail() const { return detail_text; }
};

// Reads a record out of the first 32 bytes of `bytes`. Missing bytes count as zero, and a detail
// text without a NUL ends after 15 characters.
[[nodiscard]] log_record unpack_log_record(std::string_view bytes);

[[nodiscard]] log_record_bytes pack_log_record(const log_record& record);

// The type of a packed record.
[[nodiscard]] int32_t packed_log_type(const log_record_bytes& bytes);

}  // namespace veltrancord
