#include "update/documents.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "leaf/file_replacer.h"
#include "leaf/file_text.h"
#include "leaf/kept_original.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"
#include "store/change.h"
#include "store/path.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

// Return: the document as its file has it; null when that is not what was written there, since a
// document that was read back in part would be saved over its file later.
std::unique_ptr<XmlDocument> read_back(const char* path, const std::string& name,
                                       const std::string& written) {
    std::string text;
    if (LoadFile2Buf(path, text) < 0 || text != written) {
        return nullptr;
    }
    auto doc = std::make_unique<XmlDocument>(name.c_str());
    // What was printed parses; were it not to, the document would be kept as a loaded file's is.
    static_cast<void>(doc->LoadXMLFile(std::move(text)));
    return doc;
}

int32_t answer_failure(const file_replacement& replacement) {
    if (replacement.creation_failed()) {
        return result_ok;
    }
    replacement.report_failure();
    return result_failed;
}

int32_t put_into_list(const std::string& name, const std::string& path,
                      std::unique_ptr<XmlDocument> doc) {
    g_pendingSaves.fresh = true;
    XmlDocNode* const old = FindXmlDocNode(name);
    if (AddXmlDocNode(name, path, std::move(doc)) == nullptr) {
        return result_failed;
    }
    if (old != nullptr) {
        RemoveXmlDocNode(old);
    }
    return result_ok;
}

// A file that cannot be removed is no failure, only worth a line: the document is forgotten all the
// same, until the next start finds its file.
void remove_document(XmlDocNode& node) {
    if (node.path[0] != '\0' && ::unlink(node.path) != 0 && errno != ENOENT) {
        print_error("remove_document %s error : %s\n", node.path, std::strerror(errno));
    }
    RemoveXmlDocNode(&node);
    g_pendingSaves.fresh = true;
}

// A client that holds the reply must not meet the documents again after a power cut. A directory
// that cannot be flushed is no failure, as a file that cannot be removed is none.
int32_t documents_removed() {
    static_cast<void>(flush_directory(XmlConfigDir()));
    return result_ok;
}

}  // namespace

int32_t create_document(const TiXmlElement& element) {
    const std::string& name = element.ValueStr();
    const std::string path = std::string(XmlConfigDir()).append("/").append(name);
    // The next start would skip such a file, and a cut name be taken for another document's.
    if (name.size() >= sizeof(XmlDocNode::name) || path.size() >= sizeof(XmlDocNode::path)) {
        print_error("%s name too long, skip strxmlPath=%s\n", "create_document", path.c_str());
        return result_ok;
    }
    std::string text;
    PrintXml(element, 1, text);
    file_replacement replacement;
    if (replacement.prepare(path.c_str(), text) < 0) {
        return answer_failure(replacement);
    }
    std::unique_ptr<XmlDocument> doc;
    const std::string aside = replacement.prepared_path();
    if (!aside.empty()) {
        doc = read_back(aside.c_str(), name, text);
        if (doc == nullptr) {
            return result_failed;
        }
    }
    // A file that is there without being served is one that could not be read, or not for want of
    // memory: it may hold more than what replaces it.
    const XmlDocNode* const old = FindXmlDocNode(name);
    if ((old == nullptr || old->damaged) && keep_original(path.c_str()) != result_ok) {
        return result_failed;
    }
    if (replacement.commit() < 0) {
        if (!replacement.replaced()) {
            return answer_failure(replacement);
        }
        replacement.report_failure();
    }
    if (doc == nullptr) {
        doc = read_back(path.c_str(), name, text);
    }
    return doc != nullptr ? put_into_list(name, path, std::move(doc)) : result_failed;
}

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
    XmlDocNode* const node = FindXmlDocNode(list[0].Text());
    if (node == nullptr || node->doc == nullptr) {
        return result_not_found;
    }
    if (argument == std::string(list[0].Text()).append(".*")) {
        remove_document(*node);
        return documents_removed();
    }
    StripXmlPathWildcard(list);
    return RemoveElement(*node, list) ? result_ok : result_not_found;
}

}  // namespace veltrancord
