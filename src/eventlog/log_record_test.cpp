#include "eventlog/log_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace veltrancord {
namespace {

// One byte after the other, each different.
std::string numbered_bytes() {
    std::string bytes;
    for (char c = 1; c <= 32; ++c) {
        bytes += c;
    }
    return bytes;
}

TEST(LogRecord, FieldsLieWhereClientsPutThem) {
    std::string bytes = numbered_bytes();
    bytes.replace(11, 16, std::string("fifteen letters\0", 16));
    const log_record record = unpack_log_record(bytes);
    EXPECT_EQ(record.type, 0x04030201);
    EXPECT_EQ(record.year, 5);
    EXPECT_EQ(record.month, 6);
    EXPECT_EQ(record.day, 7);
    EXPECT_EQ(record.hour, 8);
    EXPECT_EQ(record.minute, 9);
    EXPECT_EQ(record.second, 10);
    EXPECT_EQ(record.first_detail, 11);
    EXPECT_EQ(record.detail(), "fifteen letters");
    EXPECT_EQ(record.second_detail, 28);
    EXPECT_EQ(record.time, 0x201F1E1D);
    const log_record_bytes packed = pack_log_record(record);
    EXPECT_EQ(std::string(packed.data(), packed.size()), bytes);
    EXPECT_EQ(packed_log_type(packed), 0x04030201);
}

TEST(LogRecord, NumbersKeepTheirSigns) {
    std::string bytes(32, '\0');
    bytes.replace(0, 4, "\xFE\xFF\xFF\xFF");
    bytes[10] = '\xFF';
    bytes[27] = '\x80';
    bytes.replace(28, 4, std::string("\x00\x00\x00\x80", 4));
    const log_record record = unpack_log_record(bytes);
    EXPECT_EQ(record.type, -2);
    EXPECT_EQ(record.first_detail, 255);
    EXPECT_EQ(record.second_detail, 128);
    EXPECT_EQ(record.time, INT32_MIN);
    EXPECT_EQ(packed_log_type(pack_log_record(record)), -2);
}

TEST(LogRecord, DetailTextWithoutATerminatorHasFifteenCharacters) {
    const log_record record = unpack_log_record(std::string(32, 'x'));
    EXPECT_EQ(record.detail(), std::string(15, 'x'));
    EXPECT_EQ(record.second_detail, 'x');
}

TEST(LogRecord, BytesBehindTheDetailTextsEndAreDropped) {
    std::string bytes(32, '\0');
    bytes.replace(11, 6, std::string("ab\0cde", 6));
    const log_record record = unpack_log_record(bytes);
    EXPECT_EQ(record.detail(), "ab");
    EXPECT_EQ(std::string(record.detail_text, 16), "ab" + std::string(14, '\0'));
}

TEST(LogRecord, MissingBytesAreZero) {
    const std::string bytes = numbered_bytes();
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        // A copy on the heap of just that size: nothing behind it may be read.
        const auto cut = std::make_unique<char[]>(length);
        std::memcpy(cut.get(), bytes.data(), length);
        std::string filled = bytes.substr(0, length) + std::string(32 - length, '\0');
        filled[26] = '\0';  // the terminator of the detail text
        const log_record_bytes packed = pack_log_record(unpack_log_record({cut.get(), length}));
        EXPECT_EQ(std::string(packed.data(), packed.size()), filled) << length;
    }
}

TEST(LogRecord, BytesBehindTheRecordAreIgnored) {
    const log_record_bytes packed =
        pack_log_record(unpack_log_record(std::string(32, '\0') + "more"));
    EXPECT_EQ(std::string(packed.data(), packed.size()), std::string(32, '\0'));
}

}  // namespace
}  // namespace veltrancord
