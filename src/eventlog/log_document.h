// The log document: the XML document that holds the entries, with an index of the ring's elements.
//
// Entries are found and set exactly as FindXmlElement and SetXmlValue would for the path
// "Log.E<n>", whatever a file brought in (several elements of one name, gaps, foreign elements,
// another root, elements nested in entries), but without walking the document: for the positions of
// the ring the elements' addresses, their decoded records and where their text is in the file are
// kept. All three can only stay true because nobody else gets at the document; so it is never
// handed out.
//
// Used by the server thread, and by the main thread before that one serves its first request.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "eventlog/log_record.h"
#include "xml/document.h"

namespace veltrancord {

enum class log_entry_state : uint8_t {
    missing,     // there is no such element
    empty,       // an element without text
    unreadable,  // its text is no entry
    readable,
};

// What the document holds at one position.
struct log_entry {
    log_entry_state state = log_entry_state::missing;
    log_record_bytes record{};  // for clients; when it is readable
};

class log_document {
  public:
    // The file of an empty log.
    static constexpr std::string_view empty_file = "<Log>\n</Log>";

    // An empty document with an index for the positions 1 to `capacity`, but at least for 1.
    explicit log_document(int32_t capacity);

    // Parses the text of a log file in place of what the document held. Text that does not parse
    // gives an empty or partial log.
    void load(std::string text);

    // As XmlDocument::DamagedLine: from which line on the text loaded last is not in the document;
    // 0: all of it is.
    [[nodiscard]] std::size_t damaged_line() const { return document_->DamagedLine(); }

    // The number of elements in the root element, whatever their names are.
    [[nodiscard]] int32_t element_count() const;

    // What "Log.E<position>" holds, for the positions of the index: what a page asks for a thousand
    // times. At most 95 characters of the text count.
    //
    // Return: the entry, until the next change, or null for a position beyond the index.
    [[nodiscard]] const log_entry* stored(int32_t position) const {
        if (!indexed(position)) {
            return nullptr;
        }
        return held(position) ? &slot_at(position).entry : &no_entry;
    }

    // As stored(), for any position.
    //
    // Return: false when the path cannot be formed.
    [[nodiscard]] bool read(int32_t position, log_entry& entry) const;

    // As stored(), with all of the text; missing beyond the index.
    [[nodiscard]] log_entry_state decode(int32_t position, log_record& record) const;

    // Whether an entry with this text is read back at the next start, and what follows it in the
    // file: in a file that declares itself UTF-8 a character cut short at its end is not.
    [[nodiscard]] bool keeps(std::string_view text) const;

    // Sets the text of "Log.E<position>", a position of the index, as every one is that the ring
    // writes to; elements that are missing are created.
    void set(int32_t position, std::string_view text);

    // The bytes of the document's file, as SerialiseXmlDoc gives them; valid until the next change.
    [[nodiscard]] std::string_view file_text();

  private:
    static constexpr std::size_t nowhere = 0;  // no entry's text is at the front of the file
    static constexpr log_entry no_entry{};

    struct slot {
        TiXmlElement* element = nullptr;  // the first one of that name; owned by the document
        std::size_t length = 0;           // of its text in file_text_
        log_entry entry;
    };

    [[nodiscard]] bool indexed(int32_t position) const {
        return position >= 1 && static_cast<std::size_t>(position) <= capacity_;
    }
    [[nodiscard]] bool held(int32_t position) const {
        return position >= 1 && static_cast<std::size_t>(position) <= slots_.size();
    }
    slot& hold(int32_t position);
    [[nodiscard]] slot& slot_at(int32_t position) {
        return slots_[static_cast<std::size_t>(position) - 1];
    }
    [[nodiscard]] const slot& slot_at(int32_t position) const {
        return slots_[static_cast<std::size_t>(position) - 1];
    }
    [[nodiscard]] std::size_t& place_of(int32_t position) {
        return places_[static_cast<std::size_t>(position) - 1];
    }

    void build_index();
    void create_entry(slot& place, int32_t position);

    [[nodiscard]] bool is_plain() const;
    void build_file_text();
    void replace_in_file_text(int32_t position);
    void forget_file_text();

    std::unique_ptr<XmlDocument> document_;
    TiXmlElement* log_ = nullptr;  // the first element "Log" at the top, where entries are created
    std::size_t capacity_;         // positions of the index
    std::vector<slot> slots_;  // of position 1 to the last that an entry was found or made for; a
                               // start with a short log touches no memory for the others
    // Where the text of each begins in file_text_, or nowhere. By themselves, since all that lie
    // behind an entry of another length move.
    std::vector<std::size_t> places_;

    std::string file_text_;  // empty: to be built
    std::string piece_;      // one entry of it; kept for its memory
    bool pieces_known_ =
        false;  // each slot that has an element in log_ has its place in file_text_
};

}  // namespace veltrancord
