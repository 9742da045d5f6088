/* The settings that one reply told, in the order of their paths, to be compared with later ones. */
#ifndef VELTRANCORD_SNAPSHOT_H
#define VELTRANCORD_SNAPSHOT_H

#include <stddef.h>

struct snapshot_entry {
    const char* path; /* in the snapshot's text, NUL-terminated, as is the value */
    const char* value;
};

/* All zero: empty. */
struct snapshot {
    char* text; /* allocated; the lines that the entries point into */
    struct snapshot_entry* entries;
    size_t count;
};

/* Takes over `text`, "path=value" lines with a NUL behind them in memory from malloc(), or null for
 * none. A line without "=" belongs to the value before it. Return: 1, or 0 when memory could not be
 * had; the text is released then. */
int snapshot_take(struct snapshot* snapshot, char* text);

void snapshot_release(struct snapshot* snapshot);

/* Two snapshots while they are compared; borrowed. Several settings of one path are taken in the
 * order in which they were told. */
struct comparison {
    const struct snapshot* before;
    const struct snapshot* after;
    size_t next_before;
    size_t next_after;
};

/* Finds the next setting that is not the same in both. Return: 1 with the place in one of them or
 * in both, the other null; 0 at the end. */
int comparison_next(struct comparison* comparison, const struct snapshot_entry** before,
                    const struct snapshot_entry** after);

#endif
