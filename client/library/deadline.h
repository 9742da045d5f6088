/* One point in time that all waiting of an exchange ends at. */
#ifndef VELTRANCORD_DEADLINE_H
#define VELTRANCORD_DEADLINE_H

#include <stdint.h>

struct deadline {
    int64_t at_ms; /* of the monotonic clock; negative: never */
};

/* `timeout_ms` from now; a negative one never comes. */
struct deadline deadline_after(int32_t timeout_ms);

/* Milliseconds left, 0 when it has passed, -1 when it never comes: what poll() takes. */
int deadline_left(const struct deadline* deadline);

/* Sleeps `milliseconds` or until the deadline, whichever comes first. Return: 0 once it has
 * passed, else 1. */
int deadline_sleep(const struct deadline* deadline, int milliseconds);

#endif
