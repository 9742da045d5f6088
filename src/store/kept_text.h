// A cache: the text of the file of the document saved last, kept from one save to the next.
//
// What it gains: a write of one value in a document of 4 KB takes a tenth less processor time in a
// file system in memory, one of 44 KB half; on a disk, where the flush counts, 2 to 4 percent.
// While the text of a document is kept, the first change of one value replaces one line of it, and
// nothing is printed. A second change before the next save lets it go: a command of many lines
// costs what printing costs. The text is only that of the document saved last and has a bound, so
// its memory does not count beside that of the documents.
//
// It belongs to one edition of the document (xml/document.h): a change that does not tell of itself
// by Follow() leaves an edition that nothing is kept of. Only store/change.cpp
// uses it.
//
// Server thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "store/path.h"
#include "xml/document.h"

namespace veltrancord {

class KeptText {
  public:
    // A longer text is let go after its save, in bytes.
    static constexpr std::size_t most_kept = std::size_t{256} * 1024;

    // The bytes of the file that document.SaveFile() would write: the kept ones, or printed anew
    // and kept from now on in place of another document's. Valid until the next call for any
    // document.
    [[nodiscard]] std::string_view Of(const XmlDocument& document);

    // To be called when what Of() gave has been used.
    void LetGoOfLong();

    // To be called when the value of `element` at `path`, the first of its name on each level, has
    // been set, and nothing else has changed since the document had the edition `before`.
    void Follow(const XmlDocument& document, uint64_t before, const XmlPath& path,
                const TiXmlElement& element);

    // Whether Of() would print nothing.
    [[nodiscard]] bool Holds(const XmlDocument& document) const {
        return edition_ == document.Edition();
    }

  private:
    void LetGo();
    [[nodiscard]] bool ReplaceLine(const XmlPath& path, const TiXmlElement& element);
    [[nodiscard]] std::size_t FindLine(const XmlPath& path) const;
    [[nodiscard]] std::size_t FindTag(const std::string& tag, std::size_t from) const;

    std::string text_;       // a line feed, so that each line follows one, and then the text
    uint64_t edition_ = 0;   // of the document; 0, which none has: nothing is kept
    bool regular_ = false;   // elements can be told by their lines
    bool followed_ = false;  // a change since the last Of()
};

}  // namespace veltrancord
