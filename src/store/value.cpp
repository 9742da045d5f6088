#include "store/value.h"

#include <cstring>

#include "leaf/result.h"
#include "store/document_set.h"
#include "store/secret_view.h"
#include "xml/child_index.h"

namespace veltrancord {

TiXmlElement* FindXmlElement(TiXmlElement* first, const XmlPath& list) {
    if (first == nullptr || list.empty()) {
        return nullptr;
    }
    TiXmlElement* match = first;
    while (match != nullptr && match->ValueStr() != list[0].Text()) {
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
            match = FirstChildNamed(*within, list[level].Text());
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
    XmlDocument* const document = FindXmlDoc(list[0].Text());
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
    if (IsHiddenSecret(*element, element->ValueStr())) {
        out.text = "";
        return 0;  // how long it is is not shown either
    }
    out.text = text;
    if (IsSecretName(element->ValueStr())) {
        out.text = DecodeSecret(text, out.plain);
    }
    return static_cast<int32_t>(text.size());
}

}  // namespace veltrancord
