#include "eventlog/log_document.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <new>
#include <optional>

#include "eventlog/entry_text.h"
#include "store/numbered_elements.h"
#include "store/path.h"
#include "store/value.h"
#include "xml/child_index.h"
#include "xml/syntax.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

constexpr const char* log_name = "Log";
constexpr std::size_t readable_text = 95;
// What follows the last entry in the file.
constexpr std::string_view file_tail = "\n</Log>\n";

constexpr std::string_view entry_prefix = "E";

using entry_name = std::array<char, 16>;

entry_name name_of(int32_t position) {
    entry_name name{'E'};
    std::to_chars(name.data() + 1, name.data() + name.size() - 1, position);
    return name;
}

bool split_entry_path(int32_t position, XmlPath& path) {
    return SplitXmlPath(std::string(log_name) + '.' + name_of(position).data(), path);
}

log_entry_state read_element(const TiXmlElement& element, std::size_t longest, log_record& record) {
    const std::string_view text = XmlElementText(element);
    if (text.data() == nullptr) {
        return log_entry_state::empty;
    }
    return decode_log_entry(text.substr(0, longest), record) ? log_entry_state::readable
                                                             : log_entry_state::unreadable;
}

log_entry read_entry(const TiXmlElement& element) {
    log_entry entry;
    log_record record;
    entry.state = read_element(element, readable_text, record);
    if (entry.state == log_entry_state::readable) {
        entry.record = pack_log_record(record);
    }
    return entry;
}

}  // namespace

log_document::log_document(int32_t capacity)
    : document_(std::make_unique<XmlDocument>(log_name)),
      capacity_(static_cast<std::size_t>(std::max(capacity, 1))) {
    slots_.reserve(capacity_);
    places_.reserve(capacity_);
}

// The slot of an indexed position. The room was reserved, so no slot ever moves.
log_document::slot& log_document::hold(int32_t position) {
    if (!held(position)) {
        slots_.resize(static_cast<std::size_t>(position));
        places_.resize(slots_.size(), nowhere);
    }
    return slot_at(position);
}

void log_document::load(std::string text) {
    document_->LoadXMLFile(std::move(text));
    forget_file_text();
    build_index();
}

int32_t log_document::element_count() const {
    int32_t count = 0;
    const TiXmlElement* const root = document_->RootElement();
    if (root != nullptr) {
        for (const TiXmlElement* element = root->FirstChildElement(); element != nullptr;
             element = element->NextSiblingElement()) {
            ++count;
        }
    }
    return count;
}

// A look-up goes through the top elements "Log" in order and takes the first E<n> in them; setting
// a value looks only into the first of them.
void log_document::build_index() {
    slots_.clear();
    places_.clear();
    log_ = document_->FirstChildElement(log_name);
    for (TiXmlElement* top = log_; top != nullptr; top = top->NextSiblingElement(log_name)) {
        for (TiXmlElement* element = top->FirstChildElement(); element != nullptr;
             element = element->NextSiblingElement()) {
            const std::optional<int32_t> position =
                ElementNumber(element->ValueStr(), entry_prefix);
            if (!position || !indexed(*position)) {
                continue;
            }
            slot& place = hold(*position);
            if (place.element == nullptr) {
                place.element = element;
                place.entry = read_entry(*element);
            }
        }
    }
}

bool log_document::read(int32_t position, log_entry& entry) const {
    if (const log_entry* const known = stored(position); known != nullptr) {
        entry = *known;
        return true;
    }
    // The cursor stands at -1 before the first page: E-1 is a name that a file may hold.
    XmlPath path;
    if (!split_entry_path(position, path)) {
        return false;
    }
    const TiXmlElement* const element = FindXmlElement(document_->RootElement(), path);
    entry = element != nullptr ? read_entry(*element) : log_entry{};
    return true;
}

log_entry_state log_document::decode(int32_t position, log_record& record) const {
    if (!held(position) || slot_at(position).element == nullptr) {
        return log_entry_state::missing;
    }
    return read_element(*slot_at(position).element, std::string_view::npos, record);
}

void log_document::create_entry(slot& place, int32_t position) {
    if (log_ == nullptr) {
        log_ = &AppendElement(*document_, log_name);
    }
    place.element = &AppendElement(*log_, name_of(position).data());
    place_of(position) = nowhere;
}

bool log_document::keeps(std::string_view text) const {
    return IsXmlTextWhole(*document_, text);
}

void log_document::set(int32_t position, std::string_view text) {
    slot& place = hold(position);
    if (place.element == nullptr || place.element->Parent() != log_) {
        create_entry(place, position);
    }
    WriteElementText(*place.element, text);
    place.entry = read_entry(*place.element);
    try {
        replace_in_file_text(position);
    } catch (const std::bad_alloc&) {
        forget_file_text();  // the entry is in; the file's text can be built anew
    }
}

// Whether the file is one element "Log" with a line for each child, as the service itself writes
// it. In any other file entries are not looked for.
bool log_document::is_plain() const {
    const TiXmlNode* const top = document_->FirstChild();
    if (top == nullptr || top != log_ || top != document_->LastChild() ||
        top->FirstChild() == nullptr) {
        return false;
    }
    for (const TiXmlNode* child = top->FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        if (child->ToElement() == nullptr) {
            return false;
        }
    }
    return true;
}

void log_document::build_file_text() {
    file_text_ = SerialiseXmlDoc(*document_);
    pieces_known_ = false;
    if (!is_plain()) {
        return;
    }
    // What is printed child by child must be the whole file: the same text, at the same places.
    std::size_t at = file_text_.find('\n');
    for (const TiXmlElement* child = log_->FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        piece_.assign(1, '\n');
        PrintXml(*child, 1, piece_);
        if (at == std::string::npos || file_text_.compare(at, piece_.size(), piece_) != 0) {
            return;
        }
        const std::optional<int32_t> position = ElementNumber(child->ValueStr(), entry_prefix);
        if (position && held(*position) && slot_at(*position).element == child) {
            place_of(*position) = at;
            slot_at(*position).length = piece_.size();
        }
        at += piece_.size();
    }
    pieces_known_ = file_text_.compare(at, std::string::npos, file_tail) == 0;
}

// Printing a log of 1000 entries costs more than writing the file does, and one entry is all that
// has changed.
void log_document::replace_in_file_text(int32_t position) {
    if (!pieces_known_) {
        forget_file_text();
        return;
    }
    slot& entry = slot_at(position);
    piece_.assign(1, '\n');
    PrintXml(*entry.element, 1, piece_);
    if (place_of(position) == nowhere) {
        place_of(position) = file_text_.size() - file_tail.size();
        entry.length = 0;
    }
    const std::size_t at = place_of(position);
    file_text_.replace(at, entry.length, piece_);
    const std::size_t shift = piece_.size() - entry.length;
    if (shift != 0) {
        for (std::size_t& place : places_) {
            place += place > at ? shift : 0;
        }
    }
    entry.length = piece_.size();
}

void log_document::forget_file_text() {
    file_text_.clear();
    pieces_known_ = false;
}

std::string_view log_document::file_text() {
    if (file_text_.empty()) {
        build_file_text();
    }
    return file_text_;
}

}  // namespace veltrancord
