#include <tinyxml.h>

#include <memory>

#include "store/document_set.h"
#include "xml/child_index.h"

namespace veltrancord {

namespace {

void MergeInto(TiXmlElement& into, TiXmlElement& from) {
    const char* const text = from.GetText();
    TiXmlNode* const first = into.FirstChild();
    if (text != nullptr && first != nullptr && first->ToText() != nullptr) {
        first->SetValue(text);
    } else if (text != nullptr && first == nullptr) {
        into.LinkEndChild(std::make_unique<TiXmlText>(text).release());
    } else {
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
    copy.LinkEndChild(std::make_unique<TiXmlText>(text).release());
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
