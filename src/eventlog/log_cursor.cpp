#include "eventlog/log_cursor.h"

namespace veltrancord {

namespace {

bool begin_newest(log_cursor& cursor, const log_ring& ring) {
    if (ring.next == 0 && ring.count == 0) {
        return false;
    }
    cursor.position = ring.newest();
    cursor.last_mode = log_read_newest;
    return true;
}

bool begin_older(log_cursor& cursor, const log_ring& ring) {
    if (cursor.last_mode == log_read_newer) {
        // The page before was read the other way: continue from where that one began.
        cursor.position = cursor.page_start - 1;
    } else if ((cursor.position == 1 && ring.count < ring.capacity) ||
               (ring.next + 1 == ring.count && cursor.position == 1) ||
               cursor.position - 1 == ring.next + 1) {
        return false;
    }
    cursor.last_mode = log_read_older;
    return true;
}

bool begin_newer(log_cursor& cursor, const log_ring& ring) {
    const bool after_newest = cursor.last_mode == log_read_newest;
    if (cursor.last_mode == log_read_older) {
        cursor.position = cursor.page_start + 1;
    } else if (ring.next != 0
                   ? after_newest || cursor.position == ring.next
                   : cursor.position == ring.count || after_newest || cursor.position == 0) {
        return false;
    }
    cursor.last_mode = log_read_newer;
    return true;
}

bool move_older(log_cursor& cursor, const log_ring& ring) {
    if (cursor.position - 1 == ring.next + 1) {
        return false;
    }
    if (cursor.position - 1 != 0) {
        --cursor.position;
        return true;
    }
    if (ring.count < ring.capacity || ring.next + 1 == ring.count) {
        return false;
    }
    cursor.position = ring.capacity;
    return true;
}

bool move_newer(log_cursor& cursor, const log_ring& ring, int32_t direction) {
    if (cursor.position == ring.next) {
        return false;
    }
    if (cursor.position + direction <= ring.capacity) {
        cursor.position += direction;
        return true;
    }
    if (ring.count < ring.capacity || ring.next == 0) {
        return false;
    }
    cursor.position = 1;
    return true;
}

}  // namespace

bool begin_log_page(log_cursor& cursor, const log_ring& ring, int32_t mode, int32_t& direction) {
    bool reads = false;
    switch (mode) {
        case log_read_newest:
            direction = -1;
            reads = begin_newest(cursor, ring);
            break;
        case log_read_older:
            direction = -1;
            reads = begin_older(cursor, ring);
            break;
        case log_read_newer:
            direction = 1;
            reads = begin_newer(cursor, ring);
            break;
        default:
            direction = 0;
            return true;
    }
    if (reads) {
        cursor.page_start = cursor.position;
    }
    return reads;
}

bool move_log_cursor(log_cursor& cursor, const log_ring& ring, int32_t direction) {
    return direction < 0 ? move_older(cursor, ring) : move_newer(cursor, ring, direction);
}

}  // namespace veltrancord
