// What a document is saved as, and whether the next start would read all of it.
#pragma once

#include <cstddef>
#include <string>

#include "fuzz_target.h"
#include "xml/document.h"
#include "xml/text.h"

namespace veltrancord::fuzz {

// Elements and attributes below `node`. Recursive: nobody nests deeper than 512.
inline std::size_t count_settings(const TiXmlNode& node) {
    std::size_t count = 0;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        if (const TiXmlElement* const element = child->ToElement()) {
            ++count;
            const TiXmlAttribute* attribute = element->FirstAttribute();
            for (; attribute != nullptr; attribute = attribute->Next()) {
                ++count;
            }
        }
        count += count_settings(*child);
    }
    return count;
}

// Requires that what is saved holds as many settings when it is loaded again.
inline void check_saved_form(const XmlDocument& document) {
    const std::string saved = SerialiseXmlDoc(document);
    XmlDocument again("again");
    again.LoadXMLFile(saved);
    require(count_settings(again) == count_settings(document), "a saved document is read whole");
}

}  // namespace veltrancord::fuzz
