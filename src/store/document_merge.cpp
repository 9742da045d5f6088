#include <tinyxml.h>

#include "store/document_set.h"
#include "xml/child_index.h"
#include "xml/element_text.h"

namespace veltrancord {

namespace {

void MergeInto(TiXmlElement& into, TiXmlElement& from) {
    const char* const text = from.GetText();
    if (text == nullptr || !RestoreElementText(into, text)) {
        MergeXmlNode(&into, &from);
    }
}

// Attributes travel with an element that has text and with no other: what restoring writes back is
// what the devices in the field have always written.
void AppendCopy(TiXmlNode& into, TiXmlElement& from) {
    TiXmlElement& copy = AppendElement(into, from.ValueStr());
    const char* const text = from.GetText();
    if (text == nullptr) {
        MergeXmlNode(&copy, &from);
        return;
    }
    WriteElementText(copy, text);
    for (const TiXmlAttribute* attribute = from.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        copy.SetAttribute(attribute->Name(), attribute->Value());
    }
}

}  // namespace

int32_t MergeXmlNode(TiXmlNode* into, TiXmlNode* from) {
    if (into == nullptr || from == nullptr) {
        return 0;
    }
    for (TiXmlElement* child = from->FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        TiXmlElement* const same = FirstChildNamed(*into, child->ValueStr());
        if (same != nullptr) {
            MergeInto(*same, *child);
        } else {
            AppendCopy(*into, *child);
        }
    }
    return 0;
}

int32_t MergeXmlDoc(XmlDocNode* node, TiXmlNode* into) {
    if (node == nullptr || node->doc == nullptr) {
        return 0;
    }
    // Literally the first node: behind a declaration or a comment nothing is merged.
    TiXmlNode* const first = node->doc->FirstChild();
    return MergeXmlNode(into, first != nullptr ? first->ToElement() : nullptr);
}

}  // namespace veltrancord
