#include "update/subtree_merge.h"

#include <memory>
#include <string>
#include <string_view>

#include "encoding/secret.h"
#include "store/value.h"
#include "xml/child_index.h"
#include "xml/syntax.h"

namespace veltrancord {

namespace {

// A place in the document that is merged into. Its element may not exist yet: it is made when the
// first text at or below it is met.
class merge_place {
  public:
    explicit merge_place(TiXmlNode& document) : node_(&document) {}
    merge_place(merge_place& above, const std::string& name)
        : above_(&above), name_(name), node_(above.find_child(name)) {}
    merge_place(const merge_place&) = delete;
    merge_place& operator=(const merge_place&) = delete;

    TiXmlNode& node() {
        if (node_ == nullptr) {
            node_ = &AppendElement(above_->node(), name_);
        }
        return *node_;
    }

    // Whether the document can be read whole again with that text in it.
    [[nodiscard]] bool can_hold(std::string_view text) const {
        return node_ != nullptr ? IsXmlTextWhole(*node_, text) : above_->can_hold(text);
    }

  private:
    TiXmlNode* find_child(const std::string& name) {
        return node_ != nullptr ? FirstChildNamed(*node_, name) : nullptr;
    }

    merge_place* above_ = nullptr;
    std::string name_;
    TiXmlNode* node_ = nullptr;
};

void set_text(TiXmlNode& element, const std::string& text) {
    TiXmlNode* const first = element.FirstChild();
    if (first != nullptr && first->ToText() != nullptr) {
        first->SetValue(text);
        first->ToText()->SetCDATA(false);
        return;
    }
    if (first != nullptr) {
        RemoveChildNode(*first);
    }
    element.LinkEndChild(std::make_unique<TiXmlText>(text).release());
}

void merge_text(merge_place& place, const TiXmlElement& from) {
    const std::string_view text = XmlElementText(from);
    if (text.data() == nullptr) {
        return;
    }
    char secret[secret_text_size];
    if (!place.can_hold(text)) {
        return;
    }
    if (!IsSecretName(from.ValueStr()) || text.starts_with("enc:")) {
        set_text(place.node(), std::string(text));
    } else if (enc_value_encode(text, secret) >= 0) {
        set_text(place.node(), secret);
    }
}

// As deep as documents may nest (xml/document.h).
void merge_element(merge_place& above, const TiXmlElement& from) {
    merge_place place(above, from.ValueStr());
    merge_text(place, from);
    for (const TiXmlElement* child = from.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        merge_element(place, *child);
    }
}

}  // namespace

void merge_subtree(TiXmlNode& into, const TiXmlElement& from) {
    merge_place document(into);
    merge_element(document, from);
}

}  // namespace veltrancord
