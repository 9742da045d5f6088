// XML nodes as text, byte for byte as the XML library's own printer writes them, but into memory in
// one pass.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

#include "xml/document.h"

namespace veltrancord {

// Blanks that an element's line begins with for each element around it.
inline constexpr std::size_t xml_indentation = 4;

// Whether this byte of a text, of an attribute or of its name is written as an entity.
[[nodiscard]] bool IsWrittenAsEntity(char c);

// Appends to `out` what node.Print(file, depth) would write.
//
// Return: whether each line feed begins the line of an element, of its end, or of a comment or the
// like, and each element's name, attributes and text are free of angle brackets and line feeds.
// Where not, lines tell nothing about the elements.
bool PrintXml(const TiXmlNode& node, int depth, std::string& out);

// Appends the bytes of the file that document.SaveFile() would write. Return: as PrintXml.
bool SerialiseXmlDoc(const XmlDocument& document, std::string& out);

// The same bytes alone.
[[nodiscard]] std::string SerialiseXmlDoc(const XmlDocument& document);

}  // namespace veltrancord
