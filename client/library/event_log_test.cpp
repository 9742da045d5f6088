// Log records and the commands of the event log.
#include <gtest/gtest.h>
#include <veltrancord/client.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "fake_service.h"

namespace veltrancord::test {
namespace {

veltrancord_log_record sample_record() {
    veltrancord_log_record record = {};
    record.type = -2;
    record.year = 2024;
    record.month = 1;
    record.day = 31;
    record.hour = 23;
    record.minute = 5;
    record.second = 9;
    record.detail1 = 3;
    record.detail2 = 255;
    record.time = 0x01020304;
    std::strcpy(record.text, "fifteen letters");
    return record;
}

TEST(LogRecord, LiesByteForByteAsTheServiceReadsIt) {
    const veltrancord_log_record record = sample_record();
    unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE];
    veltrancord_log_pack(&record, bytes);
    const std::string expected = std::string("\xFE\xFF\xFF\xFF\x18\0\x1F\x17\x05\x09\x03", 11) +
                                 "fifteen letters" + std::string("\0\xFF\x04\x03\x02\x01", 6);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes), sizeof bytes), expected);
    veltrancord_log_record back;
    veltrancord_log_unpack(bytes, &back);
    EXPECT_EQ(back.type, record.type);
    EXPECT_EQ(back.year, 2024);
    EXPECT_EQ(back.month, 1);
    EXPECT_EQ(back.day, 31);
    EXPECT_EQ(back.hour, 23);
    EXPECT_EQ(back.minute, 5);
    EXPECT_EQ(back.second, 9);
    EXPECT_EQ(back.detail1, 3);
    EXPECT_EQ(back.detail2, 255);
    EXPECT_EQ(back.time, 0x01020304);
    EXPECT_STREQ(back.text, "fifteen letters");
}

TEST(LogRecord, ReadsAnyBytesWithinBounds) {
    unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE];
    std::memset(bytes, 0xFF, sizeof bytes);
    veltrancord_log_record record;
    veltrancord_log_unpack(bytes, &record);
    EXPECT_EQ(record.type, -1);
    EXPECT_EQ(record.year, 2255);
    EXPECT_EQ(std::strlen(record.text), 15U);
}

class EventLog : public testing::Test {
  protected:
    EventLog() : path_(directory_.socket_path()) {
        veltrancord_client_init(&client_);
        client_.socket_path = path_.c_str();
        client_.timeout_ms = -1;
    }

    scratch_directory directory_;
    std::string path_;
    veltrancord_client client_;
};

TEST_F(EventLog, AddsARecord) {
    const fake_service service(path_, reply_frame(0));
    const veltrancord_log_record record = sample_record();
    EXPECT_EQ(veltrancord_log_add(&client_, &record), 0);
    EXPECT_EQ(veltrancord_log_add_with_time(&client_, &record), 0);
    const auto requests = service.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].substr(0, 9), "writelog:");
    EXPECT_EQ(requests[0].size(), 9U + 32U);
    EXPECT_EQ(requests[1].substr(0, 17), "writelogwithtime:");
}

TEST_F(EventLog, RefusesATextThatCouldNotBeReadBack) {
    veltrancord_log_record record = sample_record();
    std::strcpy(record.text, "");
    EXPECT_EQ(veltrancord_log_add(&client_, &record), VELTRANCORD_LOG_TEXT_UNREADABLE);
    std::strcpy(record.text, "a:b");
    EXPECT_EQ(veltrancord_log_add(&client_, &record), VELTRANCORD_LOG_TEXT_UNREADABLE);
    std::memset(record.text, 'x', sizeof record.text);
    EXPECT_EQ(veltrancord_log_add(&client_, &record), VELTRANCORD_FIELD_OVER_BOUND);
    EXPECT_EQ(client_.error.bound, 15U);
    EXPECT_EQ(client_.error.found, 16U);
}

std::string two_records() {
    veltrancord_log_record record = sample_record();
    unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE];
    std::string text;
    for (int32_t type = 1; type <= 2; ++type) {
        record.type = type;
        veltrancord_log_pack(&record, bytes);
        text.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
    }
    return text;
}

TEST_F(EventLog, ReadsRecords) {
    const fake_service service(path_, reply_frame(64, two_records()));
    veltrancord_log_record records[200];
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, records, 200), 2);
    EXPECT_EQ(records[0].type, 1);
    EXPECT_EQ(records[1].type, 2);
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_OLDER, 9999999, records, 2), 2);
    EXPECT_EQ(service.requests(),
              (std::vector<std::string>{"readlog:1&-1&200", "readlog:2&9999999&2"}));
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWER, -1, records, 1),
              VELTRANCORD_BROKEN_REPLY)
        << "more records than were asked for";
}

TEST_F(EventLog, ReadsMoreRecordsThanTheStackHolds) {
    std::string text;
    for (int pair = 0; pair < 500; ++pair) {
        text += two_records();
    }
    const fake_service service(path_, reply_frame(32000, text));
    std::vector<veltrancord_log_record> records(1000);
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, records.data(), 1000),
              1000);
    EXPECT_EQ(records[999].type, 2);
}

TEST_F(EventLog, RefusesAMaskThatTheServiceWouldCut) {
    veltrancord_log_record record;
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, 10000000, &record, 1),
              VELTRANCORD_FIELD_OVER_BOUND);
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, INT_MIN, &record, 1),
              VELTRANCORD_FIELD_OVER_BOUND);
    EXPECT_EQ(client_.error.found, 11U);
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, &record, 0),
              VELTRANCORD_INVALID_USE);
}

TEST_F(EventLog, RecordsCutInTheMiddleAreBroken) {
    const fake_service service(path_, reply_frame(33, two_records().substr(0, 33)));
    veltrancord_log_record records[2];
    EXPECT_EQ(veltrancord_log_read(&client_, VELTRANCORD_LOG_NEWEST, -1, records, 2),
              VELTRANCORD_BROKEN_REPLY);
}

TEST_F(EventLog, Counts) {
    const fake_service service(path_, reply_frame(7));
    EXPECT_EQ(veltrancord_log_count(&client_), 7);
    EXPECT_EQ(veltrancord_log_capacity(&client_), 7);
    EXPECT_EQ(veltrancord_log_clear(&client_), 7);
    EXPECT_EQ(service.requests(),
              (std::vector<std::string>{"geteventcount:", "maxlogcount:", "cleanlog:"}));
}

}  // namespace
}  // namespace veltrancord::test
