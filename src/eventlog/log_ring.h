// Positions and counts of the event log's ring. Why it is as it is: see the top of log_ring.cpp.
#pragma once

#include <cstdint>

#include "eventlog/log_record.h"

namespace veltrancord {

// Entries have the positions 1 to `capacity`; the entry at position n is the element "E<n>".
struct log_ring {
    int32_t capacity = 0;  // may be zero or negative
    int32_t count = 0;     // entries held, as clients are told
    int32_t next = 0;      // the next entry goes to position next + 1

    // The position that the next entry is written to: 1 to capacity, or 1 when that is below 1.
    [[nodiscard]] int32_t write_position() const { return next + 1; }

    // The position of the newest entry; `count` when the ring has just come round.
    [[nodiscard]] int32_t newest() const { return next != 0 ? next : count; }

    // Counts an entry that was written to write_position().
    void advance();

    // What emptying the log does.
    void clear() { count = next = 0; }
};

// Whether a log document with that many elements is taken for a full one when the service starts.
[[nodiscard]] bool log_starts_full(int32_t capacity, int32_t elements);

// The ring of a log that is not full: its elements are taken for E1 to E<elements>.
[[nodiscard]] log_ring partial_log_ring(int32_t capacity, int32_t elements);

// The ring of a full log whose newest entry is at `newest`.
[[nodiscard]] log_ring full_log_ring(int32_t capacity, int32_t newest);

// Finds the newest entry of a full log. Entries are shown to it in the order of their positions.
class newest_log_entry {
  public:
    // An entry with the latest time so far becomes the newest; among equal times the last one.
    void consider(int32_t position, const log_record& record);

    // Its position; 1 when no entry was shown.
    [[nodiscard]] int32_t position() const { return position_; }

  private:
    int32_t position_ = 1;
    log_record newest_;  // all zero at first: no time is earlier
};

}  // namespace veltrancord
