// The paging cursor: where readlog goes on, and when it stops.
//
// Pure state and rules; the entries themselves are read elsewhere. There is one cursor for all
// clients: two that page at the same time disturb each other, which they know.
#pragma once

#include <cstdint>

#include "eventlog/log_ring.h"

namespace veltrancord {

// What the first field of readlog's argument means. Any other number reads the entry at the cursor
// over and over without moving it.
enum log_read_mode : int32_t {
    log_read_newest = 1,  // begin at the newest entry, toward older ones
    log_read_older = 2,   // the next page toward older entries
    log_read_newer = 3,   // the next page toward newer entries
};

struct log_cursor {
    int32_t position = -1;    // of the next entry to read; -1: no page has been read
    int32_t page_start = -1;  // the position at which the last page began
    int32_t last_mode = 0;    // of the last call that read; 0 before the first one

    // What emptying the log does. The last mode stays.
    void reset() { position = page_start = -1; }

    bool operator==(const log_cursor&) const = default;
};

// Begins a call of readlog. `direction` becomes -1 (toward older entries), +1, or 0.
//
// Return: false when there is nothing to read in that direction: the cursor is then as it was.
[[nodiscard]] bool begin_log_page(log_cursor& cursor, const log_ring& ring, int32_t mode,
                                  int32_t& direction);

// Moves on after an entry has been read.
//
// Return: false when the page ends here; the cursor then stays on that entry.
[[nodiscard]] bool move_log_cursor(log_cursor& cursor, const log_ring& ring, int32_t direction);

}  // namespace veltrancord
