// A parsed XML document that can be loaded from text in memory. Made and changed by one thread at a
// time: the server thread, or the main thread before that one serves.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>

#include "xml/child_index.h"

namespace veltrancord {

class XmlDocument : public TiXmlDocument {
  public:
    // `name` becomes the document's value; for configuration documents it is the file name.
    explicit XmlDocument(const char* name);

    // Parses the NUL-terminated text into the document in place of what it held. "\r\n" and "\r"
    // count as "\n". Never touches a file, and leaves the name as it was.
    //
    // Return: false when the text is empty (error TIXML_ERROR_DOCUMENT_EMPTY) or does not parse;
    // the document is then empty or holds what was parsed before the error. Text nested deeper than
    // max_xml_nesting (xml/nesting.h) is not parsed at all.
    bool LoadXMLFile(const char* text);

    // As above, but where memory runs out the document is empty and nothing of what was parsed
    // stays allocated when std::bad_alloc leaves here; the library alone loses the elements that
    // were open. For text that clients bring in while the service lives: it takes a sixth longer,
    // which the start, whose failure ends the process anyway, does without.
    bool LoadXMLFileOrNothing(const char* text);

    // Whether the text began with a UTF-8 byte order mark, which a saved document repeats.
    [[nodiscard]] bool HasByteOrderMark() const { return has_byte_order_mark_; }

    // A number that stands for the document as it is now: no other document has it, and this one
    // has not had it before. Never 0.
    [[nodiscard]] uint64_t Edition() const { return edition_; }

    // Whoever changes a document of the set calls this before, so that a change that fails on its
    // way counts, too. Loading does it by itself.
    void NewEdition() { edition_ = ++last_edition_; }

    // For FirstChildNamed and its like alone.
    [[nodiscard]] child_indexes& ChildIndexes() { return child_indexes_; }

  private:
    bool PrepareText(const char* text, std::string& normalised);

    static uint64_t last_edition_;

    child_indexes child_indexes_;
    uint64_t edition_ = ++last_edition_;
    bool has_byte_order_mark_ = false;
};

}  // namespace veltrancord
