// The text of an element, and the three rules by which commands set it. They differ in what becomes
// of children that are no text, and clients see the difference, so none may be replaced by another.
#pragma once

#include <tinyxml.h>

#include <string_view>

namespace veltrancord {

// The text of the element's first child when that is a text node; a view without data otherwise.
// Valid until the document changes. In line, since listings and look-ups ask for it at every
// element.
[[nodiscard]] inline std::string_view XmlElementText(const TiXmlElement& element) {
    const TiXmlNode* const first = element.FirstChild();
    return first != nullptr && first->Type() == TiXmlNode::TINYXML_TEXT
               ? std::string_view(first->Value())
               : std::string_view();
}

// As `write` does: the first child goes, whatever it is, and the text becomes the last child.
void WriteElementText(TiXmlElement& element, std::string_view text);

// As `syncxml` does: a text that is the first child is changed in its place, before its siblings;
// otherwise as `write`.
void SyncElementText(TiXmlElement& element, std::string_view text);

// As `restore` does: a text that is the first child is changed in its place and stays a CDATA
// section if it was one; an element without children gets the text; any other is left alone.
//
// Return: whether the element has the text now.
[[nodiscard]] bool RestoreElementText(TiXmlElement& element, std::string_view text);

}  // namespace veltrancord
