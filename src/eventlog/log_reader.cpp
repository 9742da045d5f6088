#include "eventlog/log_reader.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

constexpr std::size_t longest_field = 7;

// Adds the record to the reply if its type has a bit of the mask. The type keeps its sign in the
// width of the mask.
bool append_selected(const log_record_bytes& record, long mask, reply_text& reply) {
    return (long{packed_log_type(record)} & mask) != 0 &&
           reply.append({record.data(), record.size()});
}

}  // namespace

bool parse_log_request(std::string_view text, log_request& request) {
    std::array<int32_t, 3> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const std::size_t end = text.find('&');
        const std::string_view field = text.substr(0, end);
        const bool last = i + 1 == numbers.size();
        if (field.empty() || (end == std::string_view::npos && !last)) {
            return false;
        }
        numbers[i] = decimal_number(field.substr(0, longest_field));
        text.remove_prefix(std::min(field.size() + 1, text.size()));
    }
    request = {.mode = numbers[0], .mask = numbers[1], .limit = numbers[2]};
    return true;
}

int32_t log_read(const log_document& document, const log_ring& ring, log_cursor& cursor,
                 const log_request& request, reply_text& reply) {
    int32_t direction = 0;
    if (!begin_log_page(cursor, ring, request.mode, direction)) {
        return 0;
    }
    const auto room = static_cast<int32_t>(
        std::min<std::size_t>(reply.bound() / log_record_size, INT32_MAX / log_record_size));
    const int32_t limit = std::min(request.limit, room);
    // A limit below 1 is noticed behind the first entry.
    const int32_t most = std::clamp(std::min(limit, ring.count), std::min(1, room), room);
    if (!reply.reserve(static_cast<std::size_t>(most) * log_record_size)) {
        return result_too_large;
    }
    int32_t records = 0;
    int32_t result = result_ok;
    // A page may pass over a thousand entries: its lines go out in one write.
    std::string messages;
    log_entry other;
    for (int32_t pass = 0; pass < ring.count; ++pass) {
        const log_entry* entry = document.stored(cursor.position);
        if (entry == nullptr) {
            if (!document.read(cursor.position, other)) {
                messages += "GetLog: LoadXmlItem == 0\n";
                result = result_store_failed;
                break;
            }
            entry = &other;
        }
        if (entry->state == log_entry_state::missing) {
            messages += "targetele is null\n";
            break;
        }
        if (entry->state == log_entry_state::readable &&
            append_selected(entry->record, request.mask, reply)) {
            ++records;
        } else if (entry->state != log_entry_state::empty) {
            messages += "TransferToLog == 0\n";
        }
        if (!move_log_cursor(cursor, ring, direction) || records >= limit) {
            break;
        }
    }
    if (!messages.empty()) {
        print_error_text(messages);
    }
    return result < 0 ? result : records * static_cast<int32_t>(log_record_size);
}

}  // namespace veltrancord
