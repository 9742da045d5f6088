// How deep XML text is nested, found out without parsing it.
//
// The XML library parses, prints, walks and frees an element by calling itself for each child, so
// text that is nested without bound would run any stack over. A document is therefore measured
// before it is parsed.
#pragma once

namespace veltrancord {

// Elements within elements, the root counting as 1. Deeper text counts as text that does not parse.
inline constexpr int max_xml_nesting = 512;

// NUL bytes that must follow a text which is measured or parsed: in UTF-8 text the library steps
// over a character by the length that its first byte announces, even where the text ends before.
inline constexpr int xml_text_padding = 4;

// Whether parsing `text`, followed by xml_text_padding NUL bytes, would make elements nested deeper
// than `limit`. One pass that reads what the library would read, and stops where the library must
// stop at the latest, so it never answers false for text that the library nests deeper; where the
// text does not parse it may answer true for elements behind the fault.
[[nodiscard]] bool NestsDeeper(const char* text, int limit);

}  // namespace veltrancord
