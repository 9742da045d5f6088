#include "server/wait_alarm.h"

#include <signal.h>
#include <unistd.h>

namespace veltrancord {

namespace {

constexpr long repeated_after = 100'000'000;  // nanoseconds

// One that neither the system nor the service gives a meaning to.
int alarm_signal() {
    return SIGRTMIN;
}

void on_alarm(int /*number*/) {}  // to interrupt the wait is all that it is for

}  // namespace

wait_alarm::~wait_alarm() {
    if (state_ == state::made) {
        ::timer_delete(timer_);
    }
}

// Goes by the clock that runs evenly, as poll's time-out does.
bool wait_alarm::make() {
    struct sigaction action = {};
    action.sa_handler = on_alarm;
    action.sa_flags = SA_RESTART;
    sigset_t alarm_only;
    ::sigemptyset(&alarm_only);
    ::sigaddset(&alarm_only, alarm_signal());
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = alarm_signal();
    event._sigev_un._tid = ::gettid();
    return ::sigaction(alarm_signal(), &action, nullptr) == 0 &&
           ::timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0 &&
           ::pthread_sigmask(SIG_UNBLOCK, &alarm_only, nullptr) == 0;
}

bool wait_alarm::set(const loop_time& expiry, int64_t milliseconds) {
    if (state_ == state::not_made) {
        state_ = make() ? state::made : state::failed;
    }
    itimerspec when = {};
    when.it_value.tv_sec = static_cast<time_t>(milliseconds / 1000);
    when.it_value.tv_nsec = static_cast<long>(milliseconds % 1000 * 1'000'000);
    when.it_interval.tv_nsec = repeated_after;
    set_ = state_ == state::made && ::timer_settime(timer_, 0, &when, nullptr) == 0;
    rings_at_ = expiry;
    return set_;
}

void wait_alarm::silence() {
    if (set_) {
        const itimerspec never = {};
        ::timer_settime(timer_, 0, &never, nullptr);
        set_ = false;
    }
}

}  // namespace veltrancord
