#include "store/read_query.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "leaf/decimal_number.h"
#include "leaf/file_replacer.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/document_set.h"
#include "store/reply_capacity.h"
#include "store/secret_view.h"
#include "store/subtree_listing.h"
#include "store/value.h"

namespace veltrancord {

namespace {

constexpr std::size_t level_text_size = 128;

// The element's access level. Return: false when it carries none that can be read.
bool ReadLevel(const TiXmlElement* element, int32_t& level) {
    const char* const text = element != nullptr ? element->Attribute("Level") : nullptr;
    if (text == nullptr || std::strlen(text) >= level_text_size) {
        return false;
    }
    level = decimal_number(text);
    return true;
}

// Whether a client of `level` may see the element: the element must carry a level and not a lower
// one. A level of 0 or less asks for no test.
bool IsLevelAllowed(const TiXmlElement* element, int32_t level) {
    int32_t own = 0;
    return level <= 0 || (ReadLevel(element, own) && level <= own);
}

int32_t ReadAllDocuments(reply_text& out, uint32_t capacity, int32_t level, HiddenPrefixes filter) {
    const std::size_t start = out.size();
    bool kept = false;
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc == nullptr) {
            continue;
        }
        const std::size_t used = out.size();
        if (ListXmlSubtree(*node->doc, out, capacity, "", filter) != 0) {
            return result_too_large;
        }
        // A level above 0 leaves out every document, since a document itself carries no attribute
        // to allow it; clients have always been refused this way, after the listing.
        if (level > 0) {
            out.truncate(used);
            continue;
        }
        kept = true;
        if (out.size() - start > capacity) {
            return result_too_large;
        }
    }
    return kept ? static_cast<int32_t>(out.size() - start) : result_not_found;
}

int32_t ReadSingleValue(const TiXmlElement* element, std::string_view path, reply_text& out,
                        uint32_t capacity, int32_t level) {
    std::string_view text = element != nullptr ? XmlElementText(*element) : std::string_view();
    if (text.data() == nullptr || !IsLevelAllowed(element, level)) {
        return result_not_found;
    }
    if (IsHiddenSecret(*element, element->ValueStr())) {
        text = "";
    }
    const std::size_t length = path.size() + 1 + text.size();
    if (length > capacity || !out.reserve(out.size() + length)) {
        return result_too_large;
    }
    static_cast<void>(out.append(path) && out.append("=") && out.append(text));
    return static_cast<int32_t>(length);
}

int32_t ReadSubtree(XmlDocument& document, XmlPath& list, reply_text& out, uint32_t capacity,
                    int32_t level, HiddenPrefixes filter) {
    StripXmlPathWildcard(list);
    TiXmlNode* top = &document;
    if (!list[0].Text().empty()) {
        top = FindXmlElement(document.RootElement(), list);
        if (top == nullptr) {
            return result_not_found;
        }
    }
    char prefix[listing_key_size] = "";
    JoinXmlPath(list, prefix, sizeof(prefix));
    const std::size_t start = out.size();
    if (ListXmlSubtree(*top, out, capacity, prefix, filter) != 0) {
        return result_too_large;
    }
    if (!IsLevelAllowed(top->ToElement(), level)) {
        return result_not_found;
    }
    return static_cast<int32_t>(out.size() - start);
}

int32_t ReadByPath(std::string_view path, reply_text& out, uint32_t capacity, int32_t level,
                   HiddenPrefixes filter) {
    if (path == "*") {
        return ReadAllDocuments(out, capacity, level, filter);
    }
    XmlPath list;
    if (!SplitXmlPath(path, list)) {
        return result_bad_argument;
    }
    XmlDocument* const document = FindXmlDoc(list[0].Text());
    if (document == nullptr) {
        return result_not_found;
    }
    if (IsXmlPathWildcard(list)) {
        return ReadSubtree(*document, list, out, capacity, level, filter);
    }
    return ReadSingleValue(FindXmlElement(document->RootElement(), list), path, out, capacity,
                           level);
}

}  // namespace

bool OpenReadReply(reply_text& reply) {
    return reply.open(std::size_t{GetReadBufSize()} + reply_key_slack);
}

bool OpenReadReply(reply_text& reply, const char* handler) {
    if (OpenReadReply(reply)) {
        return true;
    }
    print_error("%s allocate memory fail!!\n", handler);
    return false;
}

uint32_t ReadReplyCapacity(const reply_text& reply) {
    return static_cast<uint32_t>(reply.bound() -
                                 std::min<std::size_t>(reply.bound(), reply_key_slack));
}

int32_t ReadXmlTree(std::string_view path, reply_text& out, int32_t level, HiddenPrefixes filter) {
    const std::size_t start = out.size();
    const int32_t result = ReadByPath(path, out, ReadReplyCapacity(out), level, filter);
    if (result < 0) {
        out.truncate(start);
    }
    return result;
}

int32_t DumpXmlToFile(const char* path, const char* file) {
    reply_text text;
    int32_t result = result_too_large;
    if (OpenReadReply(text)) {
        result = ReadXmlTree(path, text, 0, {});
    }
    if (file == nullptr || result < 1) {
        print_error("read xml error %d!!\n", result);
        return result;
    }
    // Everybody may put files where this one is: what others have laid in its way goes.
    file_replacement replacement;
    if (replacement.prepare(file, text.view(), name_use::taken_over) < 0 ||
        replacement.commit() < 0) {
        if (!replacement.creation_failed()) {
            replacement.report_failure();
        }
        if (!replacement.replaced()) {
            print_error("can't open %s\n", file);
            return result_too_large;
        }
    }
    return result;
}

}  // namespace veltrancord
