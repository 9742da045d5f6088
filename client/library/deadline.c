#include "deadline.h"

#include <limits.h>
#include <stddef.h>
#include <time.h>

static int64_t now_ms(void) {
    struct timespec now = {0, 0};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

struct deadline deadline_after(int32_t timeout_ms) {
    struct deadline deadline = {-1};
    if (timeout_ms >= 0) {
        deadline.at_ms = now_ms() + timeout_ms;
    }
    return deadline;
}

int deadline_left(const struct deadline* deadline) {
    int64_t left = 0;
    if (deadline->at_ms < 0) {
        return -1;
    }
    left = deadline->at_ms - now_ms();
    if (left <= 0) {
        return 0;
    }
    return left < INT_MAX ? (int)left : INT_MAX;
}

int deadline_sleep(const struct deadline* deadline, int milliseconds) {
    struct timespec pause;
    const int left = deadline_left(deadline);
    if (left == 0) {
        return 0;
    }
    if (left > 0 && left < milliseconds) {
        milliseconds = left;
    }
    pause.tv_sec = milliseconds / 1000;
    pause.tv_nsec = (long)(milliseconds % 1000) * 1000000;
    /* A signal cuts the pause short, which costs one attempt more and nothing else. */
    (void)nanosleep(&pause, NULL);
    return 1;
}
