#include "eventlog/entry_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <limits>
#include <string>

#include "leaf/bounded_text.h"

namespace veltrancord {
namespace {

class zone {
  public:
    explicit zone(const char* name) { ::setenv("TZ", name, 1); }
    zone(const zone&) = delete;
    zone& operator=(const zone&) = delete;
    ~zone() {
        ::unsetenv("TZ");
        ::tzset();
    }
};

log_record entry(int32_t type, int32_t first, const char* detail, int32_t second) {
    log_record record;
    record.type = type;
    record.first_detail = static_cast<uint8_t>(first);
    copy_bounded(record.detail_text, detail);
    record.second_detail = static_cast<uint8_t>(second);
    return record;
}

TEST(LogTime, HasTheFullYearAndTheMonthFromZero) {
    const zone utc("UTC0");
    EXPECT_EQ(local_log_time(1706743389).view(), "2024:0:31:23:23:9");
    EXPECT_EQ(local_log_time(0).view(), "1970:0:1:0:0:0");
    EXPECT_EQ(local_log_time(-1).view(), "1969:11:31:23:59:59");
    EXPECT_EQ(local_log_time(INT32_MAX).view(), "2038:0:19:3:14:7");
    EXPECT_EQ(local_log_time(INT32_MIN).view(), "1901:11:13:20:45:52");
    EXPECT_EQ(local_log_time(int64_t{INT32_MAX} + 1).view(), "2038:0:19:3:14:8");
}

TEST(LogTime, WhatDoesNotFitIsCut) {
    std::tm odd{};
    odd.tm_year = odd.tm_mon = odd.tm_mday = INT_MIN;
    EXPECT_EQ(format_log_time(odd).view(), "-2147481748:-2147483648:-214748");
}

TEST(LogTime, FollowsTheZoneWhileRunning) {
    {
        const zone east("AAA-3");
        EXPECT_EQ(local_log_time(0).view(), "1970:0:1:3:0:0");
    }
    const zone west("BBB5");
    EXPECT_EQ(local_log_time(0).view(), "1969:11:31:19:0:0");
}

TEST(LogTime, EveryTimeFits) {
    const zone utc("UTC0");
    for (const int64_t extreme :
         {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min(),
          int64_t{67768036191676799}, int64_t{-67768040609740800}}) {
        EXPECT_LT(local_log_time(extreme).view().size(), sizeof log_time_text::text - 1);
    }
    EXPECT_EQ(local_log_time(67768036191676799).view(), "2147485547:11:31:23:59:59");
    EXPECT_EQ(local_log_time(std::numeric_limits<int64_t>::max()).view(), "1900:0:0:0:0:0");
}

TEST(LogEntryText, IsFiveFieldsOfWhichTheTimeIsOne) {
    log_time_text time;
    copy_bounded(time.text, "2024:0:31:23:5:9");
    EXPECT_EQ(format_log_entry(entry(4, 3, "abc", 1), time).view(), "4:2024:0:31:23:5:9:3:abc:1");
    EXPECT_EQ(format_log_entry(entry(-1, 255, "", 255), time).view(),
              "-1:2024:0:31:23:5:9:255::255");
}

TEST(LogEntryText, LongestEntryFits) {
    log_time_text time;
    copy_bounded(time.text, std::string(31, '8'));
    const log_entry_text text =
        format_log_entry(entry(INT32_MIN, 255, "fifteen letters", 255), time);
    EXPECT_EQ(text.view(), "-2147483648:" + std::string(31, '8') + ":255:fifteen letters:255");
}

TEST(DecodeLogEntry, GivesTheRecordOfAStoredEntry) {
    log_record record;
    record.time = 7;
    ASSERT_TRUE(decode_log_entry("4:2024:0:31:23:5:9:3:abc:1", record));
    EXPECT_EQ(record.type, 4);
    EXPECT_EQ(record.year, 24);
    EXPECT_EQ(record.month, 0);
    EXPECT_EQ(record.day, 31);
    EXPECT_EQ(record.hour, 23);
    EXPECT_EQ(record.minute, 5);
    EXPECT_EQ(record.second, 9);
    EXPECT_EQ(record.first_detail, 3);
    EXPECT_EQ(record.detail(), "abc");
    EXPECT_EQ(record.second_detail, 1);
    EXPECT_EQ(record.time, 0);
}

TEST(DecodeLogEntry, WantsExactlyTenFields) {
    log_record record;
    EXPECT_FALSE(decode_log_entry("", record));
    EXPECT_FALSE(decode_log_entry("::::", record));
    std::string text;
    for (int fields = 1; fields <= 12; ++fields) {
        text += text.empty() ? "1" : ":1";
        EXPECT_EQ(decode_log_entry(text, record), fields == 10) << text;
    }
}

TEST(DecodeLogEntry, SeparatorsInARowCountAsOne) {
    log_record record;
    ASSERT_TRUE(decode_log_entry("::4::2024:0:31:23:5:9:3:::abc:1:::", record));
    EXPECT_EQ(record.type, 4);
    EXPECT_EQ(record.detail(), "abc");
    EXPECT_EQ(record.second_detail, 1);
}

TEST(DecodeLogEntry, DetailTextsThatDoNotReadBack) {
    log_time_text time;
    copy_bounded(time.text, "2024:0:31:23:5:9");
    log_record record;
    for (const char* detail : {"", ":", "::", "a:b", ":a:b:"}) {
        EXPECT_FALSE(
            decode_log_entry(format_log_entry(entry(4, 3, detail, 1), time).view(), record))
            << detail;
    }
    // Separators at its ends vanish, and the fields are ten again.
    ASSERT_TRUE(decode_log_entry(format_log_entry(entry(4, 3, ":a", 1), time).view(), record));
    EXPECT_EQ(record.detail(), "a");
    ASSERT_TRUE(decode_log_entry(format_log_entry(entry(4, 3, "a:", 1), time).view(), record));
    EXPECT_EQ(record.detail(), "a");
}

TEST(DecodeLogEntry, YearIsKeptModulo256) {
    const auto year_of = [](const std::string& year) {
        log_record record;
        EXPECT_TRUE(decode_log_entry("1:" + year + ":0:1:2:3:4:5:a:6", record));
        return int{record.year};
    };
    EXPECT_EQ(year_of("2000"), 0);
    EXPECT_EQ(year_of("2255"), 255);
    EXPECT_EQ(year_of("2256"), 0);
    EXPECT_EQ(year_of("1999"), 255);
    EXPECT_EQ(year_of("1970"), 226);
    EXPECT_EQ(year_of("2147483647"), 47);
    EXPECT_EQ(year_of("-1"), 47);
}

TEST(DecodeLogEntry, OtherFieldsKeepTheirLowEightBits) {
    log_record record;
    ASSERT_TRUE(decode_log_entry("-5:2024:256:257:-1:300:511:258:a:-2", record));
    EXPECT_EQ(record.type, -5);
    EXPECT_EQ(record.month, 0);
    EXPECT_EQ(record.day, 1);
    EXPECT_EQ(record.hour, 255);
    EXPECT_EQ(record.minute, 44);
    EXPECT_EQ(record.second, 255);
    EXPECT_EQ(record.first_detail, 2);
    EXPECT_EQ(record.second_detail, 254);
}

TEST(DecodeLogEntry, NumbersBeyond32BitsAreHeldAndWordsAreZero) {
    log_record record;
    ASSERT_TRUE(decode_log_entry("99999999999:x:y:z:1a: 2:-:+3:a:b", record));
    EXPECT_EQ(record.type, INT32_MAX);
    EXPECT_EQ(record.year, 48);
    EXPECT_EQ(record.month, 0);
    EXPECT_EQ(record.hour, 1);
    EXPECT_EQ(record.minute, 2);
    EXPECT_EQ(record.second, 0);
    EXPECT_EQ(record.first_detail, 3);
    EXPECT_EQ(record.second_detail, 0);
}

TEST(DecodeLogEntry, LongDetailTextIsCut) {
    log_record record;
    ASSERT_TRUE(decode_log_entry("1:2024:0:1:2:3:4:5:0123456789abcdefghij:6", record));
    EXPECT_EQ(record.detail(), "0123456789abcde");
    EXPECT_EQ(record.second_detail, 6);
}

TEST(DecodeLogEntry, DropsTheTextOfAnEarlierEntry) {
    log_record record;
    ASSERT_TRUE(decode_log_entry("1:2024:0:1:2:3:4:5:0123456789:6", record));
    ASSERT_TRUE(decode_log_entry("1:2024:0:1:2:3:4:5:a:6", record));
    EXPECT_EQ(std::string(record.detail_text, 16), "a" + std::string(15, '\0'));
}

}  // namespace
}  // namespace veltrancord
