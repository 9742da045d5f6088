#include "server/loop_time.h"

#include <gtest/gtest.h>

namespace veltrancord {
namespace {

TEST(MillisecondsLeft, IsRoundedToTheNearest) {
    EXPECT_EQ(milliseconds_left({10, 0}, {9, 0}), 1000);
    EXPECT_EQ(milliseconds_left({10, 7'499}, {10, 0}), 7);
    EXPECT_EQ(milliseconds_left({10, 7'500}, {10, 0}), 8);
}

TEST(MillisecondsLeft, KnowsTimesFarApart) {
    EXPECT_EQ(milliseconds_left({5'000'000'000, 0}, {0, 0}), 5'000'000'000'000);
    EXPECT_EQ(milliseconds_left({2'147'483'677, 0}, {2'147'483'647, 0}), 30'000);
    EXPECT_EQ(milliseconds_left({0, 0}, {5'000'000'000, 0}), 0);
}

TEST(MillisecondsLeft, CountsWhatIsBelow5As0) {
    EXPECT_EQ(milliseconds_left({10, 5'000}, {10, 0}), 5);
    EXPECT_EQ(milliseconds_left({10, 4'500}, {10, 0}), 5);
    EXPECT_EQ(milliseconds_left({10, 4'499}, {10, 0}), 0);
    EXPECT_EQ(milliseconds_left({10, 0}, {10, 0}), 0);
    EXPECT_EQ(milliseconds_left({9, 0}, {10, 0}), 0);
}

TEST(MillisecondsLeft, DividesNegativeMicrosecondsTowardsZero) {
    // 1000 + (-900'000 + 500) / 1000, where -899.5 becomes -899
    EXPECT_EQ(milliseconds_left({11, 0}, {10, 900'000}), 101);
    EXPECT_EQ(milliseconds_left({11, 0}, {10, 990'000}), 11);
}

TEST(MillisecondsLeft, SurvivesAClockThatWasSet) {
    EXPECT_EQ(milliseconds_left({4'000'000'000, 0}, {0, 0}), 4'000'000'000'000);
    EXPECT_EQ(milliseconds_left({0, 0}, {4'000'000'000, 0}), 0);
}

TEST(LaterBy, CarriesIntoTheSeconds) {
    EXPECT_EQ(later_by({10, 0}, 0), (loop_time{10, 0}));
    EXPECT_EQ(later_by({10, 999'000}, 1), (loop_time{11, 0}));
    EXPECT_EQ(later_by({10, 998'999}, 1), (loop_time{10, 999'999}));
    EXPECT_EQ(later_by({10, 500'000}, 30'750), (loop_time{41, 250'000}));
}

TEST(LoopTime, IsOrderedBySecondsFirst) {
    EXPECT_LT((loop_time{1, 999'999}), (loop_time{2, 0}));
    EXPECT_LT((loop_time{2, 0}), (loop_time{2, 1}));
    EXPECT_EQ((loop_time{2, 1}), (loop_time{2, 1}));
}

}  // namespace
}  // namespace veltrancord
