// Reading a page of the event log.
#pragma once

#include <cstdint>

#include "eventlog/log_cursor.h"
#include "eventlog/log_document.h"
#include "eventlog/log_ring.h"
#include "handler/reply_text.h"

namespace veltrancord {

// What a client asks readlog for.
struct log_request {
    int32_t mode = 0;   // log_read_mode, or any other number
    long mask = 0;      // entries whose type has none of these bits are left out
    int32_t limit = 0;  // records wanted; the page ends with the entry that reaches it
};

// Parses "mode&mask&limit". Each field is read as a decimal number from its first 7 characters; the
// last one ends at a further "&".
//
// Return: false when a field is missing or empty.
[[nodiscard]] bool parse_log_request(std::string_view text, log_request& request);

// Reads a page into `reply`, which is opened: 32 bytes for each record, no more than its bound
// holds. `cursor` moves along. Entries that are passed over for want of a readable text or by the
// mask are reported on standard error each, and so is a missing element, which ends the page.
//
// Return: the bytes appended (0: nothing found), result_store_failed, or result_too_large when
// memory could not be had: nothing was read then.
[[nodiscard]] int32_t log_read(const log_document& document, const log_ring& ring,
                               log_cursor& cursor, const log_request& request, reply_text& reply);

}  // namespace veltrancord
