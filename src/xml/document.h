// A parsed XML document that can be loaded from text in memory. Made and changed by one thread at a
// time: the server thread, or the main thread before that one serves.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "xml/child_index.h"

namespace veltrancord {

// Elements within elements, the root counting as 1; deeper text does not load. The XML library
// prints, walks and frees an element by calling itself for each child, so nesting without bound
// would run any stack over.
inline constexpr int max_xml_nesting = 512;

class XmlDocument : public TiXmlDocument {
  public:
    // `name` becomes the document's value; for configuration documents it is the file name.
    explicit XmlDocument(const char* name);

    // Parses the text up to its first NUL into the document in place of what it held. "\r\n" and
    // "\r" count as "\n". Never touches a file, and leaves the name as it was. The text is changed
    // where it lies: who moves it in needs no second one.
    //
    // Return: false when the text is empty (error TIXML_ERROR_DOCUMENT_EMPTY) or does not parse;
    // the document then holds what was parsed before the error, or nothing when the text nests
    // deeper than max_xml_nesting. Where memory runs out the document is empty, nothing of what was
    // parsed stays allocated, and std::bad_alloc leaves here.
    bool LoadXMLFile(std::string text);

    // The line of the text loaded last, counted from 1, from which on it is not in the document: it
    // does not parse there, or more than white space follows the last element or a NUL. 0: all of
    // it is. Text of white space alone is whole.
    [[nodiscard]] std::size_t DamagedLine() const { return damaged_line_; }

    // Whether that is because it nests deeper than max_xml_nesting.
    [[nodiscard]] bool NestsTooDeep() const { return nests_too_deep_; }

    // Whether the text began with a UTF-8 byte order mark, which a saved document repeats.
    [[nodiscard]] bool HasByteOrderMark() const { return has_byte_order_mark_; }

    // A number that stands for the document as it is now: no other document has it, and this one
    // has not had it before. Never 0.
    [[nodiscard]] uint64_t Edition() const { return edition_; }

    // Whoever changes a document of the set calls this before, so that a change that fails on its
    // way counts, too. Loading does it by itself.
    void NewEdition() { edition_ = ++last_edition_; }

    // For FirstChildNamed and its like alone.
    [[nodiscard]] ChildIndexSet& ChildIndexes() { return child_indexes_; }

  private:
    class Reader;

    static uint64_t last_edition_;

    ChildIndexSet child_indexes_;
    uint64_t edition_ = ++last_edition_;
    std::size_t damaged_line_ = 0;
    bool nests_too_deep_ = false;
    bool has_byte_order_mark_ = false;
};

// Whether a document with this declaration at its top is read as UTF-8: it names that encoding or
// none.
[[nodiscard]] bool DeclaresUtf8(const TiXmlDeclaration& declaration);

}  // namespace veltrancord
