#include "store/read_query.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "store/document_set.h"
#include "store/reply_capacity.h"
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

int32_t ReadAllDocuments(reply_text& out, uint32_t capacity, int32_t level,
                         hidden_prefixes filter) {
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
    const std::string_view text =
        element != nullptr ? XmlElementText(*element) : std::string_view();
    if (text.data() == nullptr || !IsLevelAllowed(element, level)) {
        return result_not_found;
    }
    const std::size_t length = path.size() + 1 + text.size();
    if (length > capacity || !out.reserve(out.size() + length)) {
        return result_too_large;
    }
    static_cast<void>(out.append(path) && out.append("=") && out.append(text));
    return static_cast<int32_t>(length);
}

int32_t ReadSubtree(XmlDocument& document, XmlPath& list, reply_text& out, uint32_t capacity,
                    int32_t level, hidden_prefixes filter) {
    StripXmlPathWildcard(list);
    TiXmlNode* top = &document;
    if (!list[0].text().empty()) {
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
                   hidden_prefixes filter) {
    if (path == "*") {
        return ReadAllDocuments(out, capacity, level, filter);
    }
    XmlPath list;
    if (!SplitXmlPath(path, list)) {
        return result_bad_argument;
    }
    XmlDocument* const document = FindXmlDoc(list[0].text());
    if (document == nullptr) {
        return result_not_found;
    }
    if (IsXmlPathWildcard(list)) {
        return ReadSubtree(*document, list, out, capacity, level, filter);
    }
    return ReadSingleValue(FindXmlElement(document->RootElement(), list), path, out, capacity,
                           level);
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool open_read_reply(reply_text& reply) {
    return reply.open(std::size_t{GetReadBufSize()} + reply_key_slack);
}

bool open_read_reply(reply_text& reply, const char* handler) {
    if (open_read_reply(reply)) {
        return true;
    }
    print_error("%s allocate memory fail!!\n", handler);
    return false;
}

uint32_t read_reply_capacity(const reply_text& reply) {
    return static_cast<uint32_t>(reply.bound() -
                                 std::min<std::size_t>(reply.bound(), reply_key_slack));
}

int32_t ReadXmlTree(std::string_view path, reply_text& out, int32_t level, hidden_prefixes filter) {
    const std::size_t start = out.size();
    const int32_t result = ReadByPath(path, out, read_reply_capacity(out), level, filter);
    if (result < 0) {
        out.truncate(start);
    }
    return result;
}

int32_t DumpXmlToFile(const char* path, const char* file) {
    reply_text text;
    int32_t result = result_too_large;
    if (open_read_reply(text)) {
        result = ReadXmlTree(path, text, 0, {});
    }
    if (file == nullptr || result < 1) {
        print_error("read xml error %d!!\n", result);
        return result;
    }
    // Where the file's directory is open to everybody, a link or a FIFO may have been laid in the
    // way: the first is not followed, the second not waited for.
    const owned_fd fd(::open(
        file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0666));
    if (!fd) {
        print_error("can't open %s\n", file);
        return result_too_large;
    }
    if (!WriteAll(fd.get(), text.view())) {
        print_error("can't write %s : %s\n", file, std::strerror(errno));
    }
    return result;
}

}  // namespace veltrancord
