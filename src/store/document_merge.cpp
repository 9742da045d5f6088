#include <tinyxml.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "store/document_set.h"

namespace veltrancord {

namespace {

// The first child element of each name, so that merging many children is not quadratic.
using first_children = std::unordered_map<std::string, TiXmlElement*>;

first_children FirstChildren(TiXmlNode& parent) {
    first_children children;
    for (TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        children.try_emplace(child->ValueStr(), child);
    }
    return children;
}

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
TiXmlElement* CopyOf(TiXmlElement& from) {
    auto copy = std::make_unique<TiXmlElement>(from.ValueStr());
    const char* const text = from.GetText();
    if (text == nullptr) {
        MergeXmlNode(copy.get(), &from);
        return copy.release();
    }
    copy->LinkEndChild(std::make_unique<TiXmlText>(text).release());
    for (const TiXmlAttribute* attribute = from.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        copy->SetAttribute(attribute->Name(), attribute->Value());
    }
    return copy.release();
}

}  // namespace

int32_t MergeXmlNode(TiXmlNode* into, TiXmlNode* from) {
    if (into == nullptr || from == nullptr) {
        return 0;
    }
    first_children children = FirstChildren(*into);
    for (TiXmlElement* child = from->FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        const auto [place, added] = children.try_emplace(child->ValueStr(), nullptr);
        if (added) {
            place->second = CopyOf(*child);
            into->LinkEndChild(place->second);
        } else {
            MergeInto(*place->second, *child);
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
