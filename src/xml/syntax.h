// What a saved document can hold and still be read whole when it is loaded again.
//
// The XML library prints any name and any bytes, and at the next start its parser stops at the
// first thing that it cannot read: all settings behind it would be lost with the save after that.
#pragma once

#include <tinyxml.h>

#include <string_view>

namespace veltrancord {

// Whether the parser reads `name` as the name of an element or attribute: a letter or "_" (or a
// byte above 126), then also digits, ".", "-" and ":".
[[nodiscard]] bool IsXmlName(std::string_view name);

// Whether `text`, as an element's text or an attribute's value in the document of `node`, is read
// back without what follows it. In a document that declares itself UTF-8 a character cut short at
// the end of the text takes in the "<" or the quotation mark behind it, and one cut short before a
// character that is written as an entity takes in the "&".
[[nodiscard]] bool IsXmlTextWhole(const TiXmlNode& node, std::string_view text);

}  // namespace veltrancord
