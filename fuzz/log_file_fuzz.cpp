// The log document, whatever its file brought in: the index that it keeps must answer what a walk
// over the document by dotted paths answers, and its text must be what printing the document gives.
#include <string>

#include "eventlog/entry_text.h"
#include "eventlog/log_document.h"
#include "eventlog/log_reader.h"
#include "eventlog/log_ring.h"
#include "fuzz_target.h"
#include "store/change.h"
#include "store/path.h"
#include "store/value.h"
#include "xml/text.h"

namespace veltrancord::fuzz {
namespace {

constexpr std::string_view texts[] = {
    "4:2024:0:31:23:5:9:3:abc:1",      "-1:2038:11:1:0:0:0:255:<&>\"':0",
    "0:1970:0:1:0:0:0:0::0",           "no entry",
    "1:2:3:4:5:6:7:8:\x01\xC3\xA9 :9",
};

const TiXmlElement* found(XmlDocument& plain, int32_t position) {
    XmlPath path;
    require(SplitXmlPath("Log.E" + std::to_string(position), path), "an entry's path");
    return FindXmlElement(plain.FirstChildElement(), path);
}

void check_entry(XmlDocument& plain, const log_document& log, int32_t position) {
    log_entry entry;
    require(log.read(position, entry), "an entry's path");
    const log_entry* const stored = log.stored(position);
    require(stored == nullptr || (stored->state == entry.state && stored->record == entry.record),
            "an entry of the index");
    const TiXmlElement* const element = found(plain, position);
    if (element == nullptr) {
        require(entry.state == log_entry_state::missing, "a missing entry");
        return;
    }
    const std::string_view text = XmlElementText(*element);
    log_record record;
    const bool readable = text.data() != nullptr && decode_log_entry(text.substr(0, 95), record);
    require(entry.state == (text.data() == nullptr ? log_entry_state::empty
                            : readable             ? log_entry_state::readable
                                                   : log_entry_state::unreadable),
            "an entry's state");
    require(!readable || entry.record == pack_log_record(record), "an entry's record");
}

void set_entry(XmlDocument& plain, log_document& log, int32_t position, std::string_view text) {
    XmlPath path;
    require(SplitXmlPath("Log.E" + std::to_string(position), path), "an entry's path");
    log.set(position, text);
    require(SetXmlValue(plain, path, text) != nullptr, "setting an entry");
}

void check_reading(const log_document& log, const log_ring& ring, input_reader& input) {
    log_cursor cursor;
    for (int turn = 0; turn < 3; ++turn) {
        reply_text reply;
        require(reply.open(4096), "memory for a reply");
        const log_request request{input.byte() % 5, static_cast<int8_t>(input.byte()),
                                  input.byte() % 40};
        const int32_t result = log_read(log, ring, cursor, request, reply);
        require(result < 0 || (reply.size() == static_cast<std::size_t>(result) &&
                               result % static_cast<int32_t>(log_record_size) == 0),
                "the length of a page");
    }
}

}  // namespace

void try_input(input_reader& input) {
    const int32_t capacity = input.byte() % 12 - 1;
    std::string settings(up_to_nul(input.piece()));
    const std::string text(up_to_nul(input.rest()));

    XmlDocument plain("Log");
    plain.LoadXMLFile(text);
    log_document log(capacity);
    log.load(text);
    for (std::size_t i = 0; i < settings.size() && i < 16; ++i) {
        const auto choice = static_cast<uint8_t>(settings[i]);
        const int32_t position = choice % 14;
        check_entry(plain, log, position);
        if (log.stored(position) != nullptr) {  // the ring writes to positions of the index alone
            set_entry(plain, log, position, texts[choice / 14 % std::size(texts)]);
            check_entry(plain, log, position);
        }
        if (choice >= 128) {  // so that the text is at times built anew and at times kept up
            require(log.file_text() == SerialiseXmlDoc(plain), "the text of a changed log");
        }
    }
    require(log.file_text() == SerialiseXmlDoc(plain), "the text of the log");
    for (int32_t position = 0; position < 14; ++position) {
        check_entry(plain, log, position);
    }
    const int32_t elements = log.element_count();
    const bool full = capacity > 0 && log_starts_full(capacity, elements);
    check_reading(log, full ? full_log_ring(capacity, 1) : partial_log_ring(capacity, elements),
                  input);
}

}  // namespace veltrancord::fuzz
