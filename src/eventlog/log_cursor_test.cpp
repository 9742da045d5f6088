#include "eventlog/log_cursor.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace veltrancord {

namespace {

constexpr log_ring partial{.capacity = 8, .count = 5, .next = 5};
constexpr log_ring just_round{.capacity = 8, .count = 8, .next = 0};
constexpr log_ring round{.capacity = 8, .count = 8, .next = 3};
constexpr log_ring last_left{.capacity = 8, .count = 8, .next = 7};
constexpr log_ring none{.capacity = 8, .count = 0, .next = 0};

struct begin_case {
    const char* what;
    log_ring ring;
    int32_t mode;
    log_cursor before;
    std::optional<log_cursor> after;  // none: nothing is read
};

const begin_case begin_cases[] = {
    {"newest", partial, 1, {-1, -1, 0}, {{5, 5, 1}}},
    {"newest of a ring that came round", round, 1, {7, 7, 3}, {{3, 3, 1}}},
    {"newest is the last element", just_round, 1, {-1, -1, 0}, {{8, 8, 1}}},
    {"newest of nothing", none, 1, {4, 4, 2}, {}},
    {"newest without capacity", {-3, -3, 0}, 1, {-1, -1, 0}, {{-3, -3, 1}}},

    {"older goes on", partial, 2, {3, 5, 1}, {{3, 3, 2}}},
    {"older before anything was read", partial, 2, {-1, -1, 0}, {{-1, -1, 2}}},
    {"older after newer turns round", partial, 2, {5, 4, 3}, {{3, 3, 2}}},
    {"older after newer asks no more", partial, 2, {5, 2, 3}, {{1, 1, 2}}},
    {"older at the first entry", partial, 2, {1, 3, 1}, {}},
    {"older at E1 of a round ring", round, 2, {1, 3, 2}, {{1, 1, 2}}},
    {"older at E1 when the last element is next", last_left, 2, {1, 3, 2}, {}},
    {"older before the element written next", round, 2, {5, 7, 2}, {}},
    {"older one further", round, 2, {6, 7, 2}, {{6, 6, 2}}},
    {"older before E1 that is next", just_round, 2, {2, 4, 2}, {}},

    {"newer goes on", partial, 3, {3, 2, 3}, {{3, 3, 3}}},
    {"newer after older turns round", partial, 3, {1, 3, 2}, {{4, 4, 3}}},
    {"newer after older asks no more", partial, 3, {1, 5, 2}, {{6, 6, 3}}},
    {"newer after newest", partial, 3, {3, 5, 1}, {}},
    {"newer at the newest", partial, 3, {5, 4, 3}, {}},
    {"newer before anything was read", partial, 3, {-1, -1, 0}, {{-1, -1, 3}}},
    {"newer after newest, just round", just_round, 3, {3, 5, 1}, {}},
    {"newer at the last, just round", just_round, 3, {8, 5, 3}, {}},
    {"newer at none, just round", just_round, 3, {0, 5, 3}, {}},
    {"newer at none of a round ring", round, 3, {0, 5, 3}, {{0, 0, 3}}},
    {"newer goes on, just round", just_round, 3, {6, 5, 3}, {{6, 6, 3}}},
    {"newer of nothing", none, 3, {-1, -1, 0}, {{-1, -1, 3}}},
};

TEST(LogCursor, BeginsAPage) {
    for (const begin_case& one : begin_cases) {
        log_cursor cursor = one.before;
        int32_t direction = 7;
        EXPECT_EQ(begin_log_page(cursor, one.ring, one.mode, direction), one.after.has_value())
            << one.what;
        EXPECT_EQ(cursor, one.after.value_or(one.before)) << one.what;
        EXPECT_EQ(direction, one.mode == 3 ? 1 : -1) << one.what;
    }
}

TEST(LogCursor, OtherModesReadInPlace) {
    for (const int32_t mode : {0, 4, -1, 1234567, INT32_MIN}) {
        log_cursor cursor{3, 5, 1};
        int32_t direction = 7;
        EXPECT_TRUE(begin_log_page(cursor, none, mode, direction));
        EXPECT_EQ(cursor, (log_cursor{3, 5, 1}));
        EXPECT_EQ(direction, 0);
    }
}

struct move_case {
    const char* what;
    log_ring ring;
    int32_t direction;
    int32_t before;
    std::optional<int32_t> after;  // none: the page ends
};

const move_case move_cases[] = {
    {"older", partial, -1, 5, 4},
    {"older to E1", partial, -1, 2, 1},
    {"older ends at E1", partial, -1, 1, {}},
    {"older wraps", round, -1, 1, 8},
    {"older ends before the element written next", round, -1, 5, {}},
    {"older not earlier", round, -1, 6, 5},
    {"older ends at E1 when the last element is next", last_left, -1, 1, {}},
    {"older ends at E2 when E1 is next", just_round, -1, 2, {}},
    {"older below E1", partial, -1, -1, -2},

    {"newer", partial, 1, 3, 4},
    {"newer ends at the newest", partial, 1, 5, {}},
    {"newer wraps", round, 1, 8, 1},
    {"newer ends at the newest of a round ring", round, 1, 3, {}},
    {"newer ends at the last, just round", just_round, 1, 8, {}},
    {"newer passes the newest of a partial ring", partial, 1, 6, 7},
    {"newer ends at the capacity of a partial ring", partial, 1, 8, {}},

    {"in place", partial, 0, 3, 3},
    {"in place ends at the newest", partial, 0, 5, {}},
    {"in place at the capacity", round, 0, 8, 8},
    {"in place beyond the capacity of a round ring", round, 0, 9, 1},
    {"in place beyond the capacity, just round", just_round, 0, 9, {}},
};

TEST(LogCursor, Moves) {
    for (const move_case& one : move_cases) {
        log_cursor cursor{one.before, 77, 2};
        EXPECT_EQ(move_log_cursor(cursor, one.ring, one.direction), one.after.has_value())
            << one.what;
        EXPECT_EQ(cursor, (log_cursor{one.after.value_or(one.before), 77, 2})) << one.what;
    }
}

TEST(LogCursor, ResetKeepsTheLastMode) {
    log_cursor cursor{3, 5, 2};
    cursor.reset();
    EXPECT_EQ(cursor, (log_cursor{-1, -1, 2}));
}

TEST(LogCursor, AFullRingIsPagedFromTheNewestToTheOneBeforeTheOldest) {
    log_cursor cursor;
    int32_t direction = 0;
    ASSERT_TRUE(begin_log_page(cursor, round, log_read_newest, direction));
    std::vector<int32_t> seen;
    do {
        seen.push_back(cursor.position);
    } while (seen.size() < 20 && move_log_cursor(cursor, round, direction));
    EXPECT_EQ(seen, (std::vector<int32_t>{3, 2, 1, 8, 7, 6, 5}));
}

}  // namespace
}  // namespace veltrancord
