#include "server/wait_alarm.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace veltrancord {
namespace {

constexpr loop_time noon = {1'000'000, 500'000};

bool wait_is_interrupted(int milliseconds) {
    return ::poll(nullptr, 0, milliseconds) < 0 && errno == EINTR;
}

TEST(WaitAlarm, IsNotSetAtFirst) {
    const wait_alarm alarm;
    EXPECT_FALSE(alarm.rings_by(noon));
}

TEST(WaitAlarm, RingsByItsOwnMomentAndAllLaterOnes) {
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 60'000));
    EXPECT_TRUE(alarm.rings_by(noon));
    EXPECT_TRUE(alarm.rings_by({noon.seconds, noon.microseconds + 1}));
    EXPECT_TRUE(alarm.rings_by({noon.seconds + 1, 0}));
    EXPECT_FALSE(alarm.rings_by({noon.seconds, noon.microseconds - 1}));
    EXPECT_FALSE(alarm.rings_by({noon.seconds - 1, 999'999}));
}

TEST(WaitAlarm, EndsAWait) {
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 1));
    EXPECT_TRUE(wait_is_interrupted(-1));
}

TEST(WaitAlarm, EndsAWaitInAThreadThatTakesNoSignalsOtherwise) {
    sigset_t every;
    sigset_t before;
    ::sigfillset(&every);
    ::pthread_sigmask(SIG_SETMASK, &every, &before);
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 1));
    EXPECT_TRUE(wait_is_interrupted(-1));
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(WaitAlarm, IsRepeatedForAWaitThatBeginsAfterItRang) {
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 1));
    const timespec long_enough = {60, 0};
    EXPECT_NE(::nanosleep(&long_enough, nullptr), 0);  // it rings here
    EXPECT_TRUE(wait_is_interrupted(-1));
    EXPECT_TRUE(wait_is_interrupted(-1));
}

TEST(WaitAlarm, InterruptsNothingOnceItIsSilenced) {
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 1));
    EXPECT_TRUE(wait_is_interrupted(-1));
    alarm.silence();
    EXPECT_FALSE(alarm.rings_by(noon));
    EXPECT_FALSE(wait_is_interrupted(250));
}

TEST(WaitAlarm, CanBeSetAnew) {
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 3'600'000));
    const loop_time sooner = {noon.seconds - 1, 0};
    ASSERT_TRUE(alarm.set(sooner, 1));
    EXPECT_TRUE(alarm.rings_by(sooner));
    EXPECT_TRUE(wait_is_interrupted(-1));
}

TEST(WaitAlarm, EndsWithItsObject) {
    {
        wait_alarm alarm;
        ASSERT_TRUE(alarm.set(noon, 50));
    }
    EXPECT_FALSE(wait_is_interrupted(100));
}

TEST(WaitAlarm, LeavesAReadAlone) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    wait_alarm alarm;
    ASSERT_TRUE(alarm.set(noon, 1));
    const pid_t child = ::fork();
    if (child == 0) {
        ::usleep(150'000);  // so that it rings twice meanwhile
        ::_exit(::write(ends[1], "x", 1) == 1 ? 0 : 1);
    }
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(WaitAlarm, TellsThatTheSystemHasNoTimerLeft) {
    rlimit before = {};
    ::getrlimit(RLIMIT_SIGPENDING, &before);
    const rlimit none = {0, before.rlim_max};
    ::setrlimit(RLIMIT_SIGPENDING, &none);
    wait_alarm alarm;
    EXPECT_FALSE(alarm.set(noon, 1));
    EXPECT_FALSE(alarm.rings_by(noon));
    alarm.silence();
    ::setrlimit(RLIMIT_SIGPENDING, &before);
}

}  // namespace
}  // namespace veltrancord
