#include "update/document_removal.h"

#include <unistd.h>

#include <string>

#include "leaf/result.h"
#include "leaf/whole_io.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/value.h"
#include "update/saving.h"
#include "xml/child_index.h"

namespace veltrancord {

namespace {

// A file that cannot be removed is no failure: the document is forgotten all the same, until the
// next start finds its file.
void remove_document(XmlDocNode& node) {
    if (node.path[0] != '\0') {
        ::unlink(node.path);
    }
    RemoveXmlDocNode(&node);
}

// A client that holds the reply must not meet the documents again after a power cut. A directory
// that cannot be flushed is no failure, as a file that cannot be removed is none.
int32_t documents_removed() {
    static_cast<void>(flush_directory(XmlConfigDir()));
    return result_ok;
}

int32_t remove_element(XmlDocNode& node, const XmlPath& list) {
    TiXmlElement* const element = FindXmlElement(node.doc->FirstChildElement(), list);
    if (element == nullptr) {
        return result_not_found;
    }
    node.doc->NewEdition();
    RemoveChildNode(*element);
    mark_for_saving(node, DOC_SAVE_FLASH);
    return result_ok;
}

}  // namespace

int32_t remove_setting(std::string_view argument) {
    if (argument.ends_with('\n')) {
        argument.remove_suffix(1);
    }
    XmlPath list;
    if (!SplitXmlPath(argument, list)) {
        return result_bad_argument;
    }
    if (argument == ".*") {
        while (g_xmlDocList != nullptr) {
            remove_document(*g_xmlDocList);
        }
        return documents_removed();
    }
    XmlDocNode* const node = FindXmlDocNode(list[0].text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    if (argument == std::string(list[0].text()).append(".*")) {
        remove_document(*node);
        return documents_removed();
    }
    StripXmlPathWildcard(list);
    return remove_element(*node, list);
}

}  // namespace veltrancord
