#include "store/path.h"

#include <algorithm>
#include <cstring>

#include "encoding/escape.h"

namespace veltrancord {

namespace {

constexpr std::string_view wildcard = "*";

// Room for one encoded component, its NUL included.
constexpr std::size_t component_size = 512;

}  // namespace

bool SplitXmlPath(std::string_view path, XmlPath& list) {
    list.count_ = 0;
    path = path.substr(0, max_path_text);
    path = path.substr(0, path.find('\0'));
    std::size_t used = 0;
    while (!path.empty()) {
        const std::size_t dot = std::min(path.find('.'), path.size());
        const std::string_view token = path.substr(0, dot);
        path.remove_prefix(std::min(dot + 1, path.size()));
        if (token.empty()) {
            continue;
        }
        // Three bytes for each byte of the text and a NUL for each component: it always fits.
        char* const name = list.text_.data() + used;
        const std::size_t room = std::min(component_size, list.text_.size() - used);
        const std::size_t length = std::strlen(url_encode(name, room, token));
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
        append(list[i].text());
    }
    buffer[length] = '\0';
}

std::string_view XmlPathLast(const XmlPath& list) {
    return list.empty() ? std::string_view() : list[list.size() - 1].text();
}

std::string_view XmlPathParent(const XmlPath& list) {
    return list.size() < 2 ? std::string_view() : list[list.size() - 2].text();
}

}  // namespace veltrancord
