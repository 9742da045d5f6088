#include "support/time_limit.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace veltrancord {
namespace {

TEST(TimeLimit, EveryTestHasOne) {
    EXPECT_GT(seconds_until_end(), 0);
    EXPECT_LE(seconds_until_end(), test_seconds);
}

TEST(TimeLimit, WhatHangsIsKilled) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // the limit belongs to a process of its own
    EXPECT_EXIT(
        {
            sigset_t all;
            sigfillset(&all);
            sigprocmask(SIG_SETMASK, &all, nullptr);
            end_process_after(1);
            while (true) {
                ::pause();
            }
        },
        testing::KilledBySignal(SIGKILL), "");
}

}  // namespace
}  // namespace veltrancord
