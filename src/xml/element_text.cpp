#include "xml/element_text.h"

#include <memory>
#include <string>

#include "xml/child_index.h"

namespace veltrancord {

namespace {

void AppendText(TiXmlElement& element, std::string_view text) {
    element.LinkEndChild(std::make_unique<TiXmlText>(std::string(text)).release());
}

// What was a CDATA section is none any more: it could hold a text that ends one.
void ChangeText(TiXmlText& node, std::string_view text) {
    node.SetValue(std::string(text));
    node.SetCDATA(false);
}

TiXmlText* FirstText(TiXmlElement& element) {
    TiXmlNode* const first = element.FirstChild();
    return first != nullptr ? first->ToText() : nullptr;
}

}  // namespace

void WriteElementText(TiXmlElement& element, std::string_view text) {
    TiXmlNode* const first = element.FirstChild();
    TiXmlText* const only = FirstText(element);
    if (only != nullptr && only == element.LastChild()) {
        ChangeText(*only, text);  // the same without two allocations
        return;
    }
    if (first != nullptr) {
        RemoveChildNode(*first);
    }
    AppendText(element, text);
}

void SyncElementText(TiXmlElement& element, std::string_view text) {
    if (TiXmlText* const first = FirstText(element); first != nullptr) {
        ChangeText(*first, text);
    } else {
        WriteElementText(element, text);
    }
}

bool RestoreElementText(TiXmlElement& element, std::string_view text) {
    if (TiXmlText* const first = FirstText(element); first != nullptr) {
        first->SetValue(std::string(text));
        return true;
    }
    if (!element.NoChildren()) {
        return false;
    }
    AppendText(element, text);
    return true;
}

}  // namespace veltrancord
