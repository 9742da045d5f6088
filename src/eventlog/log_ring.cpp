// The event log's ring
// ====================
//
// The log is an XML document, <Log><E1>...</E1><E2>...</E2>...</Log>. Its elements are used as a
// ring: E1 to E<capacity> are filled one after the other, and then E1 is written again. The
// document is the only thing that outlives the process. It holds no head, no tail and no sequence
// number, and other programs of the device read the file; so the ring cannot put its own state
// there, and everything below follows from having to find the state again from the entries.
//
// Two numbers describe the ring while the service runs: `count`, the entries held, and `next`, the
// position before the one that is written next. At the start they come back like this:
//
//   * Fewer elements than capacity - 1: the ring has not come round yet. The elements are taken to
//     be E1 to E<elements>, whatever their names are, and the next entry goes behind them.
//   * Otherwise the ring is taken for full, and the entry with the latest time is the newest. Among
//     equal times (a burst of events within one second) the highest position wins, which is right
//     except when the burst came round the end of the ring. A log with exactly capacity - 1
//     elements counts as full too. That looks off by one, and it is harmless: the last of them is
//     the newest unless the clock was set back, and the next entry goes to E<capacity> as it would
//     have done. Clients see a count that is one higher than the number of entries, as they always
//     have.
//
// Times are compared as the bytes that clients see, so 1999 (byte 255) is later than 2024 (24).
// A device that starts with its clock at 1970 (byte 226) and then learns the time resumes, after a
// restart, behind the entries of 1970 that are still in the ring. Comparing true years would
// resume elsewhere in such logs, and devices in the field have them.
//
// The oldest entry of a full ring is held but cannot be paged to: a page toward older entries
// stops when the element before it is the one that is written next. Clients know the number of
// entries by count and have always got one less; the stop rules are in log_cursor.cpp.
//
// The capacity comes from the size of the file system and is zero or negative where that is tiny,
// or so large that its size wrapped round. Nothing here divides by it or counts up to it: each
// entry then overwrites E1, since next + 1 reaches the capacity at once, while the count, which
// only grows when it is below the capacity, stays what it was at the start (the capacity itself) or
// zero after the log was cleaned. Readers make at most `count` passes, so they read nothing.
//
// What was rejected: a ring of binary records in a file of its own (a save would be one write of 32
// bytes), because the file's form is read by others; and finding E<n> by walking the document for
// each access, which makes an entry cost a walk of the whole ring and a page of 1000 entries half a
// million steps. log_document.h keeps the elements' addresses instead.
#include "eventlog/log_ring.h"

#include <array>

namespace veltrancord {

namespace {

std::array<uint8_t, 6> time_of(const log_record& record) {
    return {record.year, record.month, record.day, record.hour, record.minute, record.second};
}

}  // namespace

void log_ring::advance() {
    ++next;
    if (count < capacity) {
        count = next;
    }
    if (next >= capacity) {
        next = 0;
    }
}

bool log_starts_full(int32_t capacity, int32_t elements) {
    return int64_t{capacity} - 1 <= elements;
}

log_ring partial_log_ring(int32_t capacity, int32_t elements) {
    return {.capacity = capacity, .count = elements, .next = elements};
}

log_ring full_log_ring(int32_t capacity, int32_t newest) {
    return {.capacity = capacity, .count = capacity, .next = newest < capacity ? newest : 0};
}

void newest_log_entry::consider(int32_t position, const log_record& record) {
    if (time_of(record) >= time_of(newest_)) {
        newest_ = record;
        position_ = position;
    }
}

}  // namespace veltrancord
