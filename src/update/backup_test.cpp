#include "update/backup.h"

#include <gtest/gtest.h>

#include <limits>

namespace veltrancord {
namespace {

constexpr int32_t interval = 300;
constexpr int64_t last = 1'700'000'000;

TEST(Backup, IsNeverDueWithoutAChange) {
    EXPECT_FALSE(backup_is_due(last + 301, last, 0, interval));
    EXPECT_FALSE(backup_is_due(last + 100000, last, 0, interval));
    EXPECT_FALSE(backup_is_due(last - 100000, last, 0, interval));
}

TEST(Backup, IsDueAtOnceForTheFirstChangeAfterTheStart) {
    EXPECT_TRUE(backup_is_due(last, 0, 1, interval));
    EXPECT_TRUE(backup_is_due(last, 0, 1, std::numeric_limits<int32_t>::max()));
}

TEST(Backup, IsDueWhenMoreThanTheIntervalHasPassed) {
    EXPECT_FALSE(backup_is_due(last, last, 5, interval));
    EXPECT_FALSE(backup_is_due(last + 299, last, 1, interval));
    EXPECT_FALSE(backup_is_due(last + 300, last, 1, interval));
    EXPECT_TRUE(backup_is_due(last + 301, last, 1, interval));
    EXPECT_TRUE(backup_is_due(last + 301, last, std::numeric_limits<uint32_t>::max(), interval));
}

TEST(Backup, IsDueAfterAStepOfTheClock) {
    EXPECT_FALSE(backup_is_due(last - 1, last, 1, interval));
    EXPECT_FALSE(backup_is_due(last - 1800, last, 1, interval));
    EXPECT_TRUE(backup_is_due(last - 1801, last, 1, interval));
    EXPECT_FALSE(backup_is_due(last + 1800, last, 1, 3600));
    EXPECT_TRUE(backup_is_due(last + 1801, last, 1, 3600));
}

TEST(Backup, KnowsTimesBehindTheYear2038) {
    constexpr int64_t later = int64_t{1} << 33;
    EXPECT_FALSE(backup_is_due(later + 300, later, 1, interval));
    EXPECT_TRUE(backup_is_due(later + 301, later, 1, interval));
    EXPECT_TRUE(backup_is_due(-later, later, 1, interval));
    EXPECT_TRUE(backup_is_due(later, -later, 1, interval));
}

TEST(Backup, LooksWithoutEffectWhenNothingIsDue) {
    std::atomic<uint32_t> changes{0};
    int64_t time_of_last = 0;
    check_backup(changes, interval, time_of_last);
    EXPECT_EQ(time_of_last, 0);
}

}  // namespace
}  // namespace veltrancord
