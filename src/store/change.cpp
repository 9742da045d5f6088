#include "store/change.h"

#include "encoding/secret.h"
#include "store/kept_text.h"
#include "store/merge.h"
#include "store/value.h"
#include "xml/child_index.h"
#include "xml/element_text.h"
#include "xml/syntax.h"

namespace veltrancord {

PendingSaves g_pendingSaves;

namespace {

KeptText g_keptText;

// Whether the components from `first` on can be the names of new elements.
bool AreXmlNames(const XmlPath& path, std::size_t first) {
    for (std::size_t i = first; i < path.size(); ++i) {
        if (!IsXmlName(path[i].Text())) {
            return false;
        }
    }
    return true;
}

// The first element of each name down the path, or null.
TiXmlElement* FirstAt(TiXmlNode& start, const XmlPath& path) {
    TiXmlNode* at = &start;
    TiXmlElement* element = nullptr;
    for (std::size_t i = 0; i < path.size(); ++i) {
        element = FirstChildNamed(*at, path[i].Text());
        if (element == nullptr) {
            return nullptr;
        }
        at = element;
    }
    return element;
}

}  // namespace

TiXmlElement* SetXmlValue(TiXmlNode& start, const XmlPath& path, std::string_view value) {
    // A value that cannot be stored must not leave half a path behind, so it is looked at first.
    char secret[secret_text_size];
    if (IsSecretName(XmlPathLast(path))) {
        if (enc_value_encode(value, secret) < 0) {
            return nullptr;
        }
        value = secret;
    }
    if (!IsXmlTextWhole(start, value)) {
        return nullptr;
    }
    TiXmlNode* parent = &start;
    TiXmlElement* element = nullptr;
    for (std::size_t i = 0; i < path.size(); ++i) {
        element = FirstChildNamed(*parent, path[i].Text());
        if (element == nullptr) {
            // From here on all are missing; either all of them can be saved or none is made.
            if (!AreXmlNames(path, i)) {
                return nullptr;
            }
            element = &AppendElement(*parent, path[i].name);
        }
        parent = element;
    }
    if (element != nullptr) {
        WriteElementText(*element, value);
    }
    return element;
}

TiXmlElement* ChangeValue(XmlDocNode& node, const XmlPath& path, std::string_view value,
                          SaveFlag flag) {
    const uint64_t before = node.doc->Edition();
    node.doc->NewEdition();
    TiXmlElement* const element = SetXmlValue(*node.doc, path, value);
    if (element != nullptr) {
        g_keptText.Follow(*node.doc, before, path, *element);
        MarkForSaving(node, flag);
    }
    return element;
}

TiXmlElement* ChangeAttribute(XmlDocNode& node, const XmlPath& path, const std::string& name,
                              std::string_view value) {
    TiXmlElement* const element = FirstAt(*node.doc, path);
    if (element == nullptr || !IsXmlTextWhole(*element, value) ||
        (element->Attribute(name) == nullptr && !IsXmlName(name))) {
        return nullptr;
    }
    node.doc->NewEdition();
    element->SetAttribute(name, std::string(value));
    MarkForSaving(node, DOC_SAVE_FLASH);
    return element;
}

bool RemoveElement(XmlDocNode& node, const XmlPath& path) {
    TiXmlElement* const element = FindXmlElement(node.doc->FirstChildElement(), path);
    if (element == nullptr) {
        return false;
    }
    node.doc->NewEdition();
    RemoveChildNode(*element);
    MarkForSaving(node, DOC_SAVE_FLASH);
    return true;
}

// Marked before: where memory runs out on the way, a part has been merged.
bool MergeSettings(XmlDocNode& node, const TiXmlElement& from) {
    node.doc->NewEdition();
    MarkForSaving(node, DOC_SAVE_FLASH);
    return MergeSubtree(*node.doc, from);
}

void MarkForSaving(XmlDocNode& node, SaveFlag flag) {
    node.saveFlags |= flag;
    g_pendingSaves.flash = g_pendingSaves.flash || flag == DOC_SAVE_FLASH;
    g_pendingSaves.fresh = true;
}

std::string_view TextToSave(const XmlDocument& document) {
    return g_keptText.Of(document);
}

void LetGoOfLongText() {
    g_keptText.LetGoOfLong();
}

}  // namespace veltrancord
