#include "store/merge.h"

#include <string>
#include <string_view>

#include "encoding/secret.h"
#include "leaf/message.h"
#include "store/value.h"
#include "xml/child_index.h"
#include "xml/element_text.h"
#include "xml/syntax.h"

namespace veltrancord {

namespace {

// A place in the document that is merged into. Its element may not exist yet: it is made when the
// first text at or below it is met.
class MergePlace {
  public:
    explicit MergePlace(TiXmlNode& document) : node_(&document) {}
    MergePlace(MergePlace& above, const std::string& name)
        : above_(&above), name_(name), node_(above.FindChild(name)) {}
    MergePlace(const MergePlace&) = delete;
    MergePlace& operator=(const MergePlace&) = delete;

    TiXmlNode& Node() {
        if (node_ == nullptr) {
            node_ = &AppendElement(above_->Node(), name_);
        }
        return *node_;
    }

    // Whether the document can be read whole again with that text in it.
    [[nodiscard]] bool CanHold(std::string_view text) const {
        return node_ != nullptr ? IsXmlTextWhole(*node_, text) : above_->CanHold(text);
    }

    [[nodiscard]] std::string Path() const {
        const bool top = above_->above_ == nullptr;
        return top ? name_ : above_->Path().append(".").append(name_);
    }

  private:
    TiXmlNode* FindChild(const std::string& name) {
        return node_ != nullptr ? FirstChildNamed(*node_, name) : nullptr;
    }

    MergePlace* above_ = nullptr;
    std::string name_;
    TiXmlNode* node_ = nullptr;
};

bool StoreText(MergePlace& place, const TiXmlElement& from) {
    std::string_view text = XmlElementText(from);
    char secret[secret_text_size];
    if (IsSecretName(from.ValueStr()) && !text.starts_with("enc:")) {
        if (enc_value_encode(text, secret) < 0) {
            return false;
        }
        text = secret;
    }
    if (!place.CanHold(text)) {
        return false;
    }
    SyncElementText(*place.Node().ToElement(), text);
    return true;
}

// As deep as documents may nest (xml/document.h).
bool MergeElement(MergePlace& above, const TiXmlElement& from) {
    MergePlace place(above, from.ValueStr());
    bool all = true;
    if (XmlElementText(from).data() != nullptr && !StoreText(place, from)) {
        print_error("%s can't store %s\n", "syncxml", place.Path().c_str());
        all = false;
    }
    for (const TiXmlElement* child = from.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        all = MergeElement(place, *child) && all;
    }
    return all;
}

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

bool MergeSubtree(TiXmlNode& into, const TiXmlElement& from) {
    MergePlace document(into);
    return MergeElement(document, from);
}

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
