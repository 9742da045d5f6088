#include "eventlog/log_ring.h"

#include <gtest/gtest.h>

#include <tuple>

namespace veltrancord {
namespace {

std::tuple<int32_t, int32_t, int32_t> state(const log_ring& ring) {
    return {ring.capacity, ring.count, ring.next};
}

TEST(LogRing, ComesRoundAtItsCapacity) {
    log_ring ring = partial_log_ring(3, 0);
    EXPECT_EQ(ring.write_position(), 1);
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(3, 1, 1));
    EXPECT_EQ(ring.newest(), 1);
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(3, 2, 2));
    EXPECT_EQ(ring.write_position(), 3);
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(3, 3, 0));
    EXPECT_EQ(ring.newest(), 3);
    EXPECT_EQ(ring.write_position(), 1);
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(3, 3, 1));
    EXPECT_EQ(ring.newest(), 1);
}

TEST(LogRing, WithoutCapacityEachEntryGoesToTheFirstPosition) {
    for (const int32_t capacity : {0, -1, -512, -8389120}) {
        for (log_ring ring : {full_log_ring(capacity, 1), partial_log_ring(capacity, 0)}) {
            const int32_t count = ring.count;
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(ring.write_position(), 1);
                ring.advance();
                EXPECT_EQ(state(ring), std::tuple(capacity, count, 0));
            }
        }
    }
}

TEST(LogRing, OfOneEntry) {
    EXPECT_TRUE(log_starts_full(1, 0));
    log_ring ring = full_log_ring(1, 1);
    EXPECT_EQ(state(ring), std::tuple(1, 1, 0));
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(1, 1, 0));
    ring.clear();
    EXPECT_EQ(state(ring), std::tuple(1, 0, 0));
    ring.advance();
    EXPECT_EQ(state(ring), std::tuple(1, 1, 0));
}

TEST(LogRing, StartsFullFromOneBelowItsCapacity) {
    EXPECT_FALSE(log_starts_full(1000, 998));
    EXPECT_TRUE(log_starts_full(1000, 999));
    EXPECT_TRUE(log_starts_full(1000, 1000));
    EXPECT_TRUE(log_starts_full(1000, 5000));
    EXPECT_TRUE(log_starts_full(0, 0));
    EXPECT_TRUE(log_starts_full(INT32_MIN, 0));
}

TEST(LogRing, StartsWhereItWas) {
    EXPECT_EQ(state(partial_log_ring(8, 5)), std::tuple(8, 5, 5));
    EXPECT_EQ(state(full_log_ring(8, 5)), std::tuple(8, 8, 5));
    EXPECT_EQ(state(full_log_ring(8, 7)), std::tuple(8, 8, 7));
    EXPECT_EQ(state(full_log_ring(8, 8)), std::tuple(8, 8, 0));
    EXPECT_EQ(state(full_log_ring(-3, 1)), std::tuple(-3, -3, 0));
}

TEST(LogRing, ClearingKeepsTheCapacity) {
    log_ring ring = full_log_ring(8, 5);
    ring.clear();
    EXPECT_EQ(state(ring), std::tuple(8, 0, 0));
}

log_record at(uint8_t year, uint8_t month, uint8_t day, uint8_t hour, uint8_t minute,
              uint8_t second) {
    log_record record;
    record.year = year;
    record.month = month;
    record.day = day;
    record.hour = hour;
    record.minute = minute;
    record.second = second;
    return record;
}

TEST(NewestLogEntry, IsTheFirstPositionAtFirst) {
    EXPECT_EQ(newest_log_entry().position(), 1);
}

TEST(NewestLogEntry, IsTheLatestWithTheYearBeforeAllElse) {
    // Each is later than the one before by a field of less weight being smaller.
    const log_record ascending[] = {at(1, 11, 31, 23, 59, 59), at(2, 1, 31, 23, 59, 59),
                                    at(2, 2, 2, 23, 59, 59),   at(2, 2, 3, 3, 59, 59),
                                    at(2, 2, 3, 4, 4, 59),     at(2, 2, 3, 4, 5, 6),
                                    at(2, 2, 3, 4, 5, 7)};
    for (int32_t a = 0; a < 7; ++a) {
        for (int32_t b = 0; b < 7; ++b) {
            newest_log_entry newest;
            newest.consider(3, ascending[a]);
            newest.consider(4, ascending[b]);
            EXPECT_EQ(newest.position(), b >= a ? 4 : 3) << a << " " << b;
        }
    }
}

TEST(NewestLogEntry, IsTheLastOfEqualTimesEvenOfZeros) {
    newest_log_entry newest;
    newest.consider(2, log_record{});
    EXPECT_EQ(newest.position(), 2);
    newest.consider(5, log_record{});
    EXPECT_EQ(newest.position(), 5);
    newest.consider(6, at(1, 0, 0, 0, 0, 0));
    newest.consider(7, log_record{});
    EXPECT_EQ(newest.position(), 6);
}

TEST(NewestLogEntry, ComparesBytesWithoutASign) {
    newest_log_entry newest;
    newest.consider(2, at(24, 0, 1, 0, 0, 0));
    newest.consider(3, at(226, 0, 1, 0, 0, 0));  // 1970
    newest.consider(4, at(25, 0, 1, 0, 0, 0));
    EXPECT_EQ(newest.position(), 3);
}

}  // namespace
}  // namespace veltrancord
