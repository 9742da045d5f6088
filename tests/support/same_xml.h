// Comparing XML trees, and how deep one is.
#pragma once

#include <tinyxml.h>

#include <algorithm>
#include <string>

namespace veltrancord {

inline bool same_attributes(const TiXmlElement& one, const TiXmlElement& other) {
    const TiXmlAttribute* left = one.FirstAttribute();
    const TiXmlAttribute* right = other.FirstAttribute();
    while (left != nullptr && right != nullptr && left->NameTStr() == right->NameTStr() &&
           left->ValueStr() == right->ValueStr()) {
        left = left->Next();
        right = right->Next();
    }
    return left == nullptr && right == nullptr;
}

// Whether both hold the same: kinds, names, attributes and texts of all nodes in them.
inline bool same_xml(const TiXmlNode& one, const TiXmlNode& other) {
    if (one.Type() != other.Type() || one.ValueStr() != other.ValueStr()) {
        return false;
    }
    if (one.ToElement() != nullptr && !same_attributes(*one.ToElement(), *other.ToElement())) {
        return false;
    }
    if (one.ToText() != nullptr && one.ToText()->CDATA() != other.ToText()->CDATA()) {
        return false;
    }
    const TiXmlDeclaration* const declaration = one.ToDeclaration();
    if (declaration != nullptr) {
        const TiXmlDeclaration& second = *other.ToDeclaration();
        return declaration->Version() == std::string(second.Version()) &&
               declaration->Encoding() == std::string(second.Encoding()) &&
               declaration->Standalone() == std::string(second.Standalone());
    }
    const TiXmlNode* left = one.FirstChild();
    const TiXmlNode* right = other.FirstChild();
    while (left != nullptr && right != nullptr && same_xml(*left, *right)) {
        left = left->NextSibling();
        right = right->NextSibling();
    }
    return left == nullptr && right == nullptr;
}

// Elements within elements, an element itself counting as 1.
inline int xml_depth(const TiXmlNode& node) {
    int deepest = 0;
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        deepest = std::max(deepest, xml_depth(*child));
    }
    return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

}  // namespace veltrancord
