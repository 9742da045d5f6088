#include "store/subtree_listing.h"

#include <string.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "encoding/escape.h"
#include "store/secret_view.h"
#include "store/value.h"

namespace veltrancord {

namespace {

// Whether url_decode gives back the character itself, whatever follows it. Others up to '+' do,
// too, but they are not usual in a name.
constexpr bool StandsForItself(char character) {
    return static_cast<unsigned char>(character) > '+' && character != '_';
}

// The same for all bytes of a word. With a loop over the bytes `read:*` of the sample takes 9 %
// more of the service's instructions (callgrind) and 2 of 58 microseconds more; the XML printer was
// slower by words. A byte below the one that is subtracted from it borrows, which sets its high
// bit; so it is found whether one is below '+' + 1, and, after an exclusive or with '_', below 1.
// What is above a byte that borrows may be taken for one, which changes nothing.
constexpr bool StandForThemselves(uint64_t word) {
    constexpr uint64_t ones = ~uint64_t{0} / 255;
    const uint64_t underscores = word ^ (ones * '_');
    const uint64_t borrows =
        ((word - ones * ('+' + 1)) & ~word) | ((underscores - ones) & ~underscores);
    return (borrows & (ones << 7U)) == 0;
}

template <class Word>
Word CopyWord(char* to, const char* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    std::memcpy(to, &word, sizeof word);
    return word;
}

// Copies a name that url_decode would give back as it is, looking through it by words; the last
// one overlaps the one before it.
//
// Return: false when the name must be decoded; what was copied is worth nothing then.
bool CopyPlainName(char* to, std::string_view name) {
    const char* const from = name.data();
    const std::size_t size = name.size();
    if (size >= sizeof(uint64_t)) {
        const std::size_t last = size - sizeof(uint64_t);
        bool plain = StandForThemselves(CopyWord<uint64_t>(to + last, from + last));
        for (std::size_t at = 0; at < last; at += sizeof(uint64_t)) {
            plain = plain && StandForThemselves(CopyWord<uint64_t>(to + at, from + at));
        }
        return plain;
    }
    if (size >= sizeof(uint32_t)) {
        const std::size_t last = size - sizeof(uint32_t);
        const uint64_t first = CopyWord<uint32_t>(to, from);
        return StandForThemselves(first << 32U | CopyWord<uint32_t>(to + last, from + last));
    }
    for (std::size_t at = 0; at < size; ++at) {
        to[at] = from[at];
    }
    return std::all_of(name.begin(), name.end(), StandsForItself);
}

// Asks for the memory of what comes next while this node is listed, without which `read:*` of 20 MB
// takes a sixth longer: nodes are made in the order of the file and lie in memory one behind the
// other, but each must have been read to find the next. Where they lie otherwise nothing is lost:
// any address may be asked for.
void PrefetchBehind(const TiXmlNode* node) {
    constexpr std::size_t distance = 4096;
    constexpr std::size_t bytes = 256;  // of the 400 and more that an element and its text take
    constexpr std::size_t cache_line = 64;
    const char* const behind = reinterpret_cast<const char*>(node) + distance;
    for (std::size_t at = 0; at < bytes; at += cache_line) {
        __builtin_prefetch(behind + at);
    }
}

// Prefixes are copied in steps of this size, and further than they reach: cheaper than a copy of
// any length.
constexpr std::size_t prefix_step = 32;
static_assert(listing_key_size % prefix_step == 0);

class Lister {
  public:
    // The two buffers are written before they are read, and clearing them costs more than a short
    // listing.
    // cppcheck-suppress uninitMemberVar
    Lister(reply_text& out, uint32_t capacity, HiddenPrefixes filter)
        : out_(out), start_(out.size()), capacity_(capacity), filter_(filter) {
        plain_[0] = '\0';
    }
    Lister(const Lister&) = delete;
    Lister& operator=(const Lister&) = delete;
    ~Lister() {
        if (plain_[0] != '\0') {
            ::explicit_bzero(plain_, sizeof plain_);
        }
    }

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
    [[nodiscard]] bool AppendUsualLine(std::size_t length, const std::string& name,
                                       const std::string& text);
    [[nodiscard]] bool AppendLine(std::string_view key, const TiXmlElement& element,
                                  std::string_view text);
    [[nodiscard]] bool IsVisible(std::string_view key, const TiXmlElement& element) const {
        return filter_.empty() || IsXmlNodeVisible(key, element, filter_);
    }

    reply_text& out_;
    const std::size_t start_;
    const std::size_t capacity_;
    const HiddenPrefixes filter_;
    char key_[listing_key_size];    // one for the whole walk: a child's key begins with its
                                    // parent's
    char plain_[secret_text_size];  // the decoded form of a secret
};

// Return: the length of the key with the decoded name behind it.
std::size_t Lister::AppendName(std::size_t length, std::string_view name) {
    if (length > 0 && length + 1 < sizeof(key_)) {
        key_[length++] = '.';
    }
    const std::size_t room = sizeof(key_) - length;
    if (name.size() < room && CopyPlainName(key_ + length, name)) {
        return length + name.size();
    }
    url_decode(key_ + length, room, name);
    return length + std::strlen(key_ + length);
}

bool Lister::AppendLine(std::string_view key, const TiXmlElement& element, std::string_view text) {
    if (IsSecretName(element.ValueStr())) {
        const bool hidden = IsHiddenSecret(element, element.ValueStr());
        text = hidden ? std::string_view("") : DecodeSecret(text, plain_);
    }
    if (capacity_ < text.size() + (out_.size() - start_) + 2) {
        return false;
    }
    return out_.append_all(key, "=", text, "\n");
}

// Appends the line of an element with a lone text below the key of that length, written where it
// will stand: a name that neither has to be decoded nor names a secret, and room to spare.
//
// Return: false, and nothing is appended, when the line is not of that kind or does not fit.
bool Lister::AppendUsualLine(std::size_t length, const std::string& name, const std::string& text) {
    const std::size_t key_length = length + 1 + name.size();
    if (key_length >= sizeof(key_) || IsSecretName(name)) {
        return false;
    }
    char* const line = out_.room(key_length + prefix_step + text.size() + 2);
    if (line == nullptr) {
        return false;
    }
    for (std::size_t copied = 0; copied < length; copied += prefix_step) {
        std::memcpy(line + copied, key_ + copied, prefix_step);
    }
    char* to = line + length;
    if (length > 0) {
        *to++ = '.';
    }
    if (!CopyPlainName(to, name)) {
        return false;
    }
    to += name.size();
    *to++ = '=';
    // A text ends at its first NUL, which a character reference may have put into it.
    char* const end = ::stpcpy(to, text.c_str());
    if (capacity_ < static_cast<std::size_t>(end - to) + (out_.size() - start_) + 2) {
        return false;
    }
    *end = '\n';
    out_.take(static_cast<std::size_t>(end + 1 - line));
    return true;
}

bool Lister::List(const TiXmlNode& parent, std::size_t length, bool at_top) {
    for (const TiXmlNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
        PrefetchBehind(node);
        if (node->Type() != TiXmlNode::TINYXML_ELEMENT) {
            continue;
        }
        const auto* const child = static_cast<const TiXmlElement*>(node);
        const TiXmlNode* const content = child->FirstChild();
        if (content == nullptr) {
            continue;
        }
        // A lone text, which most elements hold, is no level of its own.
        const bool alone = content->NextSibling() == nullptr;
        if (alone && content->Type() == TiXmlNode::TINYXML_TEXT && filter_.empty() &&
            AppendUsualLine(length, child->ValueStr(), content->ValueStr())) {
            continue;
        }
        const std::size_t key_length = AppendName(length, child->ValueStr());
        const std::string_view key(key_, key_length);
        if (at_top && !IsVisible(key, *child)) {
            continue;
        }
        if ((!alone || content->Type() == TiXmlNode::TINYXML_ELEMENT) &&
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
                       std::string_view prefix, HiddenPrefixes filter) {
    Lister listing(out, capacity, filter);
    return listing.List(top, listing.SetPrefix(prefix), true) ? 0 : -1;
}

bool IsXmlNodeVisible(std::string_view key, const TiXmlElement& element, HiddenPrefixes filter) {
    for (const std::string_view prefix : filter) {
        if (key.starts_with(prefix)) {
            return false;
        }
    }
    const char* const shown = element.Attribute("AllowToShow");
    return shown == nullptr || strcasecmp(shown, "YES") == 0;
}

}  // namespace veltrancord
