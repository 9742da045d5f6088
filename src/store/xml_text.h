// XML nodes as text, byte for byte as the XML library's own printer writes them, but into memory in
// one pass.
#pragma once

#include <tinyxml.h>

#include <string>

#include "store/xml_document.h"

namespace veltrancord {

// Appends to `out` what node.Print(file, depth) would write.
void PrintXml(const TiXmlNode& node, int depth, std::string& out);

// The bytes of the file that document.SaveFile() would write.
[[nodiscard]] std::string SerialiseXmlDoc(const XmlDocument& document);

}  // namespace veltrancord
