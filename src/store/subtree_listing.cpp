#include "store/subtree_listing.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "encoding/escape.h"
#include "store/value.h"

namespace veltrancord {

namespace {

// Whether url_decode gives back the character itself, whatever follows it.
constexpr std::array<bool, 256> stands_for_itself = [] {
    std::array<bool, 256> table{};
    table.fill(true);
    for (const char decoded : {'_', '+', '\0'}) {
        table[static_cast<unsigned char>(decoded)] = false;
    }
    return table;
}();

class lister {
  public:
    // The two buffers are written before they are read, and clearing them costs more than a short
    // listing.
    // cppcheck-suppress uninitMemberVar
    lister(reply_text& out, uint32_t capacity, hidden_prefixes filter)
        : out_(out), start_(out.size()), capacity_(capacity), filter_(filter) {}

    // Lists what is below `parent`, whose key is the first `length` bytes of key_.
    // NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which loading bounds.
    [[nodiscard]] bool List(const TiXmlNode& parent, std::size_t length, bool at_top);

    std::size_t SetPrefix(std::string_view prefix) {
        const std::size_t length = std::min(prefix.size(), sizeof(key_) - 1);
        prefix.copy(key_, length);
        return length;
    }

  private:
    std::size_t AppendName(std::size_t length, std::string_view name);
    [[nodiscard]] bool AppendLine(std::string_view key, const TiXmlElement& element,
                                  std::string_view text);
    [[nodiscard]] bool IsVisible(std::string_view key, const TiXmlElement& element) const {
        return filter_.empty() || IsXmlNodeVisible(key, element, filter_);
    }

    reply_text& out_;
    const std::size_t start_;
    const std::size_t capacity_;
    const hidden_prefixes filter_;
    char key_[listing_key_size];  // one for the whole walk: a child's key begins with its
                                  // parent's
    char plain_[secret_text_size];
};

// Return: the length of the key with the decoded name behind it.
std::size_t lister::AppendName(std::size_t length, std::string_view name) {
    if (length > 0 && length + 1 < sizeof(key_)) {
        key_[length++] = '.';
    }
    // Nearly all names stand for themselves and are copied as they are looked through.
    const std::size_t most = std::min(name.size(), sizeof(key_) - length - 1);
    char* const to = key_ + length;
    std::size_t copied = 0;
    while (copied < most && stands_for_itself[static_cast<unsigned char>(name[copied])]) {
        to[copied] = name[copied];
        ++copied;
    }
    if (copied < name.size()) {
        url_decode(to, sizeof(key_) - length, name);
        copied = std::strlen(to);
    }
    return length + copied;
}

bool lister::AppendLine(std::string_view key, const TiXmlElement& element, std::string_view text) {
    if (IsSecretName(element.ValueStr())) {
        text = DecodeSecret(text, plain_);
    }
    if (capacity_ < text.size() + (out_.size() - start_) + 2) {
        return false;
    }
    return out_.append_all(key, "=", text, "\n");
}

bool lister::List(const TiXmlNode& parent, std::size_t length, bool at_top) {
    for (const TiXmlNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (node->Type() != TiXmlNode::TINYXML_ELEMENT) {
            continue;
        }
        const auto* const child = static_cast<const TiXmlElement*>(node);
        const std::size_t key_length = AppendName(length, child->ValueStr());
        const std::string_view key(key_, key_length);
        if (at_top && !IsVisible(key, *child)) {
            continue;
        }
        const TiXmlNode* const content = child->FirstChild();
        if (content == nullptr) {
            continue;
        }
        // A lone text, which most elements hold, is no level of its own.
        if ((content->NextSibling() != nullptr || content->Type() == TiXmlNode::TINYXML_ELEMENT) &&
            !List(*child, key_length, false)) {
            return false;
        }
        const std::string_view text = XmlElementText(*child);
        if (text.data() != nullptr && (at_top || IsVisible(key, *child)) &&
            !AppendLine(key, *child, text)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int32_t ListXmlSubtree(const TiXmlNode& top, reply_text& out, uint32_t capacity,
                       std::string_view prefix, hidden_prefixes filter) {
    lister listing(out, capacity, filter);
    return listing.List(top, listing.SetPrefix(prefix), true) ? 0 : -1;
}

bool IsXmlNodeVisible(std::string_view key, const TiXmlElement& element, hidden_prefixes filter) {
    for (const std::string_view prefix : filter) {
        if (key.starts_with(prefix)) {
            return false;
        }
    }
    const char* const shown = element.Attribute("AllowToShow");
    return shown == nullptr || strcasecmp(shown, "YES") == 0;
}

}  // namespace veltrancord
