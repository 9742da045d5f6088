#include "service/waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/times.h>
#include <unistd.h>

#include <string>

namespace veltrancord {
namespace {

class Waiting : public testing::Test {
  protected:
    Waiting() { ::sigaction(SIGALRM, nullptr, &before_); }
    ~Waiting() override { ::sigaction(SIGALRM, &before_, nullptr); }

  private:
    struct sigaction before_ = {};
};

TEST_F(Waiting, EndsWithTheAlarm) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int64_t begin = millisecond_ticks();
    do_sleep(1);
    EXPECT_GE(millisecond_ticks() - begin, 900);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Got sigalrm, do_sleep() will end\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "sigsuspend() returned\n");
}

TEST_F(Waiting, LeavesTheMaskAsItWasAndMasksAllSignalsInTheHandler) {
    sigset_t before;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    do_sleep(1);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
    struct sigaction action = {};
    ::sigaction(SIGALRM, nullptr, &action);
    for (const int number : {SIGALRM, SIGTERM, SIGCHLD, SIGUSR1}) {
        EXPECT_EQ(::sigismember(&after, number), ::sigismember(&before, number));
        EXPECT_EQ(::sigismember(&action.sa_mask, number), 1);
    }
}

TEST_F(Waiting, ReportsAWrongSignal) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    do_sleep(1);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    struct sigaction action = {};
    ::sigaction(SIGALRM, nullptr, &action);
    testing::internal::CaptureStderr();
    action.sa_handler(SIGUSR1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Caught wrong signal: 10\nGot sigalrm, do_sleep() will end\n");
}

TEST(MillisecondTicks, CountMilliseconds) {
    struct tms unused = {};
    const int64_t per_second = ::sysconf(_SC_CLK_TCK);
    const int64_t before = static_cast<int64_t>(::times(&unused)) * 1000 / per_second;
    const int64_t ticks = millisecond_ticks();
    const int64_t after = static_cast<int64_t>(::times(&unused)) * 1000 / per_second;
    EXPECT_GE(ticks, before);
    EXPECT_LE(ticks, after);
}

}  // namespace
}  // namespace veltrancord
