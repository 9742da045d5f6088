// The text of one document's file, kept from one save to the next.
//
// Printing a document of 44 KB takes longer than everything else of a save, and most saves follow
// the change of one value. While the text of a document is kept, such a change replaces one line of
// it and nothing is printed. The text is only that of the document saved last and has a bound, so
// its memory does not count beside that of the documents.
//
// It can be out of date only for a document that was changed without a word to it: each change
// begins with NewEdition() (xml/document.h), but for that of a value, which is made here.
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

class kept_text {
  public:
    // A longer text is let go after its save, in bytes.
    static constexpr std::size_t most_kept = std::size_t{256} * 1024;

    // The bytes of the file that document.SaveFile() would write: the kept ones, or printed anew
    // and kept from now on in place of another document's. Valid until the next call for any
    // document.
    [[nodiscard]] std::string_view Of(const XmlDocument& document);

    // To be called when what Of() gave has been used.
    void LetGoOfLong();

    // Does what SetXmlValue does with that document, and to its text when that is kept.
    //
    // Return: as SetXmlValue.
    [[nodiscard]] int32_t SetValue(XmlDocument& document, const XmlPath& path,
                                   std::string_view value);

    // Whether Of() would print nothing.
    [[nodiscard]] bool Holds(const XmlDocument& document) const {
        return edition_ == document.Edition();
    }

  private:
    [[nodiscard]] bool Follow(XmlDocument& document, const XmlPath& path);
    [[nodiscard]] bool FollowIfMemoryAllows(XmlDocument& document, const XmlPath& path);
    [[nodiscard]] std::size_t FindLine(const XmlPath& path);
    [[nodiscard]] std::size_t FindTag(std::size_t from) const;

    std::string text_;      // a line feed, so that each line follows one, and then the text
    uint64_t edition_ = 0;  // of the document; 0, which none has: nothing is kept
    bool regular_ = false;  // elements can be told by their lines
    std::size_t work_ = 0;  // bytes gone through for changes since the text was printed

    std::string tag_;   // what the next three are is told where they are used;
    std::string over_;  // they are kept for their memory
    std::string line_;
};

}  // namespace veltrancord
