#include "update/write_lines.h"

#include <string>

#include "leaf/result.h"
#include "store/change.h"
#include "update/lines.h"
#include "update/program_queue.h"

namespace veltrancord {

namespace {

constexpr std::size_t max_attribute_name = 255;

// Applies each line of `text` by `apply`, until one fails.
template <class Apply>
int32_t apply_lines(std::string_view text, Apply apply) {
    if (text.empty()) {
        return result_bad_argument;
    }
    update_lines lines(text);
    update_line line;
    int32_t applied = 0;
    while (lines.next(line)) {
        const int32_t result = apply(line);
        if (result < 0) {
            return result;
        }
        ++applied;
    }
    return applied;
}

}  // namespace

int32_t set_element_value(std::string_view path, std::string_view value, bool to_flash,
                          const TiXmlElement** element) {
    XmlPath list;
    if (path.size() > max_line_path || value.size() > max_element_value ||
        !SplitXmlPath(path, list)) {
        return result_bad_argument;
    }
    XmlDocNode* const node = FindXmlDocNode(list[0].Text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    const TiXmlElement* const changed =
        ChangeValue(*node, list, value, to_flash ? DOC_SAVE_FLASH : DOC_SAVE_MEMORY);
    if (changed == nullptr) {
        return result_store_failed;
    }
    if (element != nullptr) {
        *element = changed;
    }
    return result_ok;
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
    XmlDocNode* const node = FindXmlDocNode(list[0].Text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    return ChangeAttribute(*node, list, name, value) != nullptr ? result_ok : result_store_failed;
}

int32_t write_lines(std::string_view text, bool to_flash) {
    return apply_lines(text, [&](const update_line& line) {
        const TiXmlElement* element = nullptr;
        const int32_t result = set_element_value(line.path, line.value, to_flash, &element);
        if (element != nullptr) {
            queue_program(*element, text);
        }
        return result;
    });
}

int32_t writeattr_lines(std::string_view text) {
    return apply_lines(
        text, [](const update_line& line) { return set_attribute_value(line.path, line.value); });
}

}  // namespace veltrancord
