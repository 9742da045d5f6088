#include "update/value_setting.h"

#include <string>

#include "leaf/result.h"
#include "store/document_set.h"
#include "store/path.h"
#include "update/lines.h"
#include "update/saving.h"
#include "xml/syntax.h"

namespace veltrancord {

namespace {

constexpr std::size_t max_attribute_name = 255;

}  // namespace

int32_t set_element_value(std::string_view path, std::string_view value, bool to_flash) {
    XmlPath list;
    if (path.size() > max_line_path || value.size() > max_element_value ||
        !SplitXmlPath(path, list)) {
        return result_bad_argument;
    }
    XmlDocNode* const node = FindXmlDocNode(list[0].text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    return change_value(*node, list, value, to_flash ? DOC_SAVE_FLASH : DOC_SAVE_MEMORY);
}

int32_t set_attribute_value(std::string_view path, std::string_view value) {
    XmlPath list;
    if (path.size() > max_line_path || value.size() > max_attribute_value ||
        !SplitXmlPath(path, list)) {
        return result_bad_argument;
    }
    const std::string name(XmlPathLast(list).substr(0, max_attribute_name));
    // A path of one component keeps it: the attribute of the root element that bears its name.
    DropXmlPathTail(list);
    XmlDocNode* const node = FindXmlDocNode(list[0].text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    TiXmlNode* parent = node->doc.get();
    TiXmlElement* element = nullptr;
    for (std::size_t i = 0; i < list.size(); ++i) {
        element = parent->FirstChildElement(list[i].name);
        if (element == nullptr) {
            return result_store_failed;
        }
        parent = element;
    }
    if (element == nullptr || !IsXmlTextWhole(*element, value) ||
        (element->Attribute(name) == nullptr && !IsXmlName(name))) {
        return result_store_failed;
    }
    node->doc->NewEdition();
    element->SetAttribute(name, std::string(value));
    mark_for_saving(*node, DOC_SAVE_FLASH);
    return result_ok;
}

}  // namespace veltrancord
