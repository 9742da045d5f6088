#include "store/path.h"

#include <algorithm>
#include <cstring>

#include "encoding/escape.h"

namespace veltrancord {

namespace {

constexpr std::string_view wildcard = "*";

// Room for one encoded component, its NUL included.
constexpr std::size_t component_size = 512;
static_assert(component_size > max_path_text);  // without an escape every component fits

// Copies the bytes before the first "." that need no escape, which mostly are the whole component.
//
// Return: their number.
std::size_t CopyPlainBytes(std::string_view path, char* name) {
    std::size_t count = 0;
    while (count < path.size() && path[count] != '.' && url_safe(path[count])) {
        name[count] = path[count];
        ++count;
    }
    return count;
}

}  // namespace

bool SplitXmlPath(std::string_view path, XmlPath& list) {
    list.count_ = 0;
    path = path.substr(0, max_path_text);
    path = path.substr(0, path.find('\0'));
    std::size_t used = 0;
    while (!path.empty()) {
        // Three bytes for each byte of the text and a NUL for each component: it always fits.
        char* const name = list.text_.data() + used;
        std::size_t token = CopyPlainBytes(path, name);
        std::size_t length = token;
        if (token < path.size() && path[token] != '.') {
            token = std::min(path.find('.', token), path.size());
            const std::size_t room = std::min(component_size, list.text_.size() - used);
            length = std::strlen(url_encode(name, room, path.substr(0, token)));
        }
        path.remove_prefix(std::min(token + 1, path.size()));
        if (length == 0) {
            continue;
        }
        name[length] = '\0';
        list.nodes_[list.count_++] = XmlPathNode{name, length};
        used += length + 1;
    }
    return list.count_ > 0;
}

bool IsXmlPathWildcard(const XmlPath& list) {
    return XmlPathLast(list) == wildcard;
}

void StripXmlPathWildcard(XmlPath& list) {
    if (!IsXmlPathWildcard(list)) {
        return;
    }
    if (list.count_ == 1) {
        list.nodes_[0] = XmlPathNode{"", 0};
    } else {
        --list.count_;
    }
}

void DropXmlPathTail(XmlPath& list) {
    if (list.count_ > 1) {
        --list.count_;
    }
}

void JoinXmlPath(const XmlPath& list, char* buffer, std::size_t size) {
    std::size_t length = std::strlen(buffer);
    const auto append = [&](std::string_view text) {
        const std::size_t count = std::min(text.size(), size - 1 - length);
        std::copy_n(text.data(), count, buffer + length);
        length += count;
    };
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i > 0) {
            append(".");
        }
        append(list[i].Text());
    }
    buffer[length] = '\0';
}

std::string_view XmlPathLast(const XmlPath& list) {
    return list.empty() ? std::string_view() : list[list.size() - 1].Text();
}

std::string_view XmlPathParent(const XmlPath& list) {
    return list.size() < 2 ? std::string_view() : list[list.size() - 2].Text();
}

}  // namespace veltrancord
