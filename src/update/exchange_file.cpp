#include "update/exchange_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>
#include <new>
#include <string>
#include <utility>

#include "leaf/file_replacer.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"
#include "store/change.h"
#include "store/merge.h"
#include "update/documents.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

constexpr std::size_t max_path = 255;      // longer ones are refused
constexpr std::size_t max_cut_path = 127;  // longer ones are cut

// What parsing appends to the text, which should not have to be copied for it.
constexpr std::size_t parsing_room = 8;

// Return: false when the file has fewer bytes, or memory for them could not be had.
bool read_text(int fd, std::size_t size, std::string& text) {
    try {
        text.reserve(size + parsing_room);
        text.resize(size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return read_whole(fd, text.data(), size) == static_cast<ssize_t>(size);
}

// Calls `apply` for each element below the root of the exchange file, until one cannot be written.
// Settings that cannot be stored are told at the end.
int32_t apply_exchange_file(const std::string& path, int32_t (*apply)(TiXmlElement& element)) {
    XmlDocument exchange(path.c_str());
    if (!load_exchange_file(path.c_str(), exchange)) {
        return result_unparsable;
    }
    int32_t all = result_ok;
    TiXmlElement* const root = exchange.RootElement();
    TiXmlElement* element = root != nullptr ? root->FirstChildElement() : nullptr;
    for (; element != nullptr; element = element->NextSiblingElement()) {
        const int32_t result = apply(*element);
        if (result == result_store_failed) {
            all = result;
        } else if (result < 0) {
            return result;
        }
    }
    return all;
}

int32_t upload_element(TiXmlElement& element) {
    return create_document(element);
}

int32_t restore_element(TiXmlElement& element) {
    MergeXmlDoc(FindXmlDocNode(element.ValueStr()), &element);
    const int32_t result = create_document(element);
    if (result < 0) {
        return result;
    }
    PruneXmlDocs();
    return result_ok;
}

int32_t sync_element(TiXmlElement& element) {
    XmlDocNode* const node = FindXmlDocNode(element.ValueStr());
    if (node == nullptr || node->doc == nullptr) {
        return create_document(element);
    }
    return MergeSettings(*node, element) ? result_ok : result_store_failed;
}

}  // namespace

bool load_exchange_file(const char* path, XmlDocument& exchange) {
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size <= 0 || status.st_size >= std::numeric_limits<int32_t>::max()) {
        return false;
    }
    std::string text;
    return read_text(file.get(), static_cast<std::size_t>(status.st_size), text) &&
           exchange.LoadXMLFile(std::move(text));
}

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
    if (path.empty() || path.size() > max_path) {
        return result_failed;
    }
    std::string text = "<ROOT>\n";
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr) {
            PrintXml(*node->doc, 1, text);
        }
    }
    text += "</ROOT>";
    return replace_file(std::string(path).c_str(), text);
}

}  // namespace veltrancord
