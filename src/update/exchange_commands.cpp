#include "update/exchange_commands.h"

#include <tinyxml.h>

#include <string>

#include "leaf/result.h"
#include "store/document_set.h"
#include "update/document_creation.h"
#include "update/exchange_file.h"
#include "update/saving.h"
#include "update/subtree_merge.h"

namespace veltrancord {

namespace {

constexpr std::size_t max_path = 255;      // longer ones are refused
constexpr std::size_t max_cut_path = 127;  // longer ones are cut

// Calls `apply` for each element below the root of the exchange file, until one fails.
int32_t apply_exchange_file(const std::string& path, int32_t (*apply)(TiXmlElement& element)) {
    XmlDocument exchange(path.c_str());
    if (!load_exchange_file(path.c_str(), exchange)) {
        return result_unparsable;
    }
    TiXmlElement* const root = exchange.RootElement();
    TiXmlElement* element = root != nullptr ? root->FirstChildElement() : nullptr;
    for (; element != nullptr; element = element->NextSiblingElement()) {
        const int32_t result = apply(*element);
        if (result < 0) {
            return result;
        }
    }
    return result_ok;
}

int32_t upload_element(TiXmlElement& element) {
    return create_document(element);
}

int32_t restore_element(TiXmlElement& element) {
    MergeXmlDoc(find_document_of(element.ValueStr()), &element);
    const int32_t result = create_document(element);
    if (result < 0) {
        return result;
    }
    PruneXmlDocs();
    return result_ok;
}

int32_t sync_element(TiXmlElement& element) {
    XmlDocNode* const node = find_document_of(element.ValueStr());
    if (node == nullptr || node->doc == nullptr) {
        return create_document(element);
    }
    node->doc->NewEdition();
    merge_subtree(*node->doc, element);
    mark_for_saving(*node, DOC_SAVE_FLASH);
    return result_ok;
}

}  // namespace

int32_t upload_documents(std::string_view path) {
    if (path.size() > max_path) {
        return result_unparsable;
    }
    return apply_exchange_file(std::string(path), upload_element);
}

int32_t restore_documents(std::string_view path) {
    return apply_exchange_file(std::string(path.substr(0, max_cut_path)), restore_element);
}

int32_t sync_documents(std::string_view path) {
    return apply_exchange_file(std::string(path.substr(0, max_cut_path)), sync_element);
}

int32_t download_documents(std::string_view path) {
    if (path.size() > max_path) {
        return result_failed;
    }
    return write_exchange_file(std::string(path).c_str());
}

}  // namespace veltrancord
