#include "schema/moment.h"

#include <gtest/gtest.h>

namespace veltrancord::schema {
namespace {

moment_order times(std::string_view left, std::string_view right) {
    return compare(*read_time(left), *read_time(right));
}

moment_order dates(std::string_view left, std::string_view right) {
    return compare(*read_date(left), *read_date(right));
}

TEST(Time, IsOneThatAClockShows) {
    for (const char* text : {"00:00:00", "23:59:59.999", "24:00:00", "12:00:00Z", "12:00:00+14:00",
                             "12:00:00-00:30"}) {
        EXPECT_TRUE(read_time(text)) << text;
    }
    for (const char* text :
         {"", "24:00:01", "25:00:00", "12:60:00", "12:00:60", "12:00", "1:00:00", "12:00:00.",
          "12:00:00+14:01", "12:00:00+5:00", "12:00:00Z0", "12:00:00+05:60", "-1:00:00"}) {
        EXPECT_FALSE(read_time(text)) << text;
    }
}

TEST(Date, IsOneOfTheCalendar) {
    for (const char* text : {"2024-02-29", "2000-02-29", "0001-01-01", "9999-12-31", "2024-02-29Z",
                             "2024-04-30+02:00"}) {
        EXPECT_TRUE(read_date(text)) << text;
    }
    for (const char* text :
         {"2023-02-29", "1900-02-29", "2024-04-31", "2024-00-10", "2024-13-01", "2024-01-00",
          "0000-01-01", "24-01-01", "2024-1-1", "2024-01-01T", ""}) {
        EXPECT_FALSE(read_date(text)) << text;
    }
}

TEST(Moment, IsComparedWithItsZone) {
    EXPECT_EQ(times("08:00:00", "08:00:00.0"), moment_order::same);
    EXPECT_EQ(times("08:00:00", "08:00:00.5"), moment_order::before);
    EXPECT_EQ(times("10:00:00+02:00", "08:00:00Z"), moment_order::same);
    EXPECT_EQ(times("10:00:00Z", "10:00:00-01:00"), moment_order::before);
    EXPECT_EQ(times("10:00:00Z", "10:00:00"), moment_order::unknown);
    EXPECT_EQ(dates("2024-02-29", "2024-03-01"), moment_order::before);
    EXPECT_EQ(dates("2024-03-01Z", "2024-02-28"), moment_order::after);
    EXPECT_EQ(dates("2024-01-01Z", "2024-01-01"), moment_order::unknown);
}

}  // namespace
}  // namespace veltrancord::schema
