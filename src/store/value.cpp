#include "store/value.h"

#include <cstring>
#include <memory>
#include <string>

#include "leaf/result.h"
#include "store/document_set.h"
#include "xml/child_index.h"
#include "xml/syntax.h"

namespace veltrancord {

namespace {

// Whether the components from `first` on can be the names of new elements.
bool AreXmlNames(const XmlPath& list, std::size_t first) {
    for (std::size_t i = first; i < list.size(); ++i) {
        if (!IsXmlName(list[i].text())) {
            return false;
        }
    }
    return true;
}

}  // namespace

TiXmlElement* FindXmlElement(TiXmlElement* first, const XmlPath& list) {
    if (first == nullptr || list.empty()) {
        return nullptr;
    }
    TiXmlElement* match = first;
    while (match != nullptr && match->ValueStr() != list[0].text()) {
        match = match->NextSiblingElement();
    }
    // `level` components have matched, the last of them `within`. Where that one does not hold the
    // rest of the path, a later one of its name may.
    std::size_t level = 0;
    TiXmlElement* within = nullptr;
    for (;;) {
        if (match != nullptr) {
            if (++level == list.size()) {
                return match;
            }
            within = match;
            match = FirstChildNamed(*within, list[level].text());
        } else if (level > 0) {
            match = NextOfSameName(*within);
            within = --level > 0 ? within->Parent()->ToElement() : nullptr;
        } else {
            return nullptr;
        }
    }
}

std::string_view DecodeSecret(std::string_view stored, char (&plain)[secret_text_size]) {
    std::memset(plain, 0, sizeof(plain));
    // Where the stored form is damaged, what could be decoded is the value.
    static_cast<void>(enc_value_decode(stored, plain));
    return plain;
}

int32_t ReadXmlValue(std::string_view path, XmlValue& out) {
    XmlPath list;
    if (!SplitXmlPath(path, list) || path == ".*") {
        return result_bad_argument;
    }
    XmlDocument* const document = FindXmlDoc(list[0].text());
    if (document == nullptr) {
        return result_not_found;
    }
    if (IsXmlPathWildcard(list)) {
        return result_bad_argument;
    }
    const TiXmlElement* const element = FindXmlElement(document->RootElement(), list);
    if (element == nullptr) {
        return result_not_found;
    }
    const std::string_view text = XmlElementText(*element);
    if (text.data() == nullptr) {
        return result_not_found;
    }
    out.text = text;
    if (IsSecretName(element->ValueStr())) {
        out.text = DecodeSecret(text, out.plain);
    }
    return static_cast<int32_t>(text.size());
}

void SetXmlElementText(TiXmlElement& element, std::string_view value) {
    TiXmlNode* const first = element.FirstChild();
    if (first != nullptr && first == element.LastChild() && first->ToText() != nullptr) {
        // A lone text is changed where it is, which is the same without two allocations.
        first->SetValue(std::string(value));
        first->ToText()->SetCDATA(false);
        return;
    }
    if (first != nullptr) {
        RemoveChildNode(*first);
    }
    element.LinkEndChild(std::make_unique<TiXmlText>(std::string(value)).release());
}

int32_t SetXmlValue(TiXmlNode& start, const XmlPath& list, std::string_view value) {
    if (list.empty()) {
        return result_ok;
    }
    // A value that cannot be stored must not leave half a path behind, so it is looked at first.
    char secret[secret_text_size];
    if (IsSecretName(XmlPathLast(list))) {
        if (enc_value_encode(value, secret) < 0) {
            return result_store_failed;
        }
        value = secret;
    }
    if (!IsXmlTextWhole(start, value)) {
        return result_store_failed;
    }
    TiXmlNode* parent = &start;
    for (std::size_t i = 0; i < list.size(); ++i) {
        TiXmlElement* element = FirstChildNamed(*parent, list[i].text());
        if (element == nullptr) {
            // From here on all are missing; either all of them can be saved or none is made.
            if (!AreXmlNames(list, i)) {
                return result_store_failed;
            }
            element = &AppendElement(*parent, list[i].name);
        }
        parent = element;
    }
    SetXmlElementText(*parent->ToElement(), value);
    return result_ok;
}

}  // namespace veltrancord
