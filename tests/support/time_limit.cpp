#include "support/time_limit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <ctime>

namespace veltrancord {

namespace {

timer_t make_timer() {
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGKILL;
    timer_t timer{};
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) {
        std::abort();
    }
    return timer;
}

timer_t end_timer() {
    static timer_t timer = make_timer();
    return timer;
}

// What hangs is named by the line "[ RUN ]" above the end.
class time_limit : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override {
        end_process_after(test_seconds);
    }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { end_process_after(0); }
};

}  // namespace

void end_process_after(int seconds) {
    itimerspec limit{};
    limit.it_value.tv_sec = seconds;
    if (::timer_settime(end_timer(), 0, &limit, nullptr) != 0) {
        std::abort();
    }
}

int seconds_until_end() {
    itimerspec left{};
    ::timer_gettime(end_timer(), &left);
    return static_cast<int>(left.it_value.tv_sec) + (left.it_value.tv_nsec > 0 ? 1 : 0);
}

}  // namespace veltrancord

int main(int argument_count, char** arguments) {
    testing::InitGoogleMock(&argument_count, arguments);
    testing::UnitTest::GetInstance()->listeners().Append(new veltrancord::time_limit);
    return RUN_ALL_TESTS();
}
