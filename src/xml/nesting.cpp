#include "xml/nesting.h"

#include <strings.h>
#include <tinyxml.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "encoding/hex_digit.h"

namespace veltrancord {

namespace {

// What a byte can be; a table, since every byte of every document is looked at.
enum byte_class : uint8_t {
    white_space = 1,
    name_start = 2,
    name_byte = 4,
    // In text, in any encoding, a character of one byte that begins and ends nothing.
    plain_text = 8,
};

constexpr std::array<uint8_t, 256> byte_classes = [] {
    std::array<uint8_t, 256> classes{};
    for (int byte = 0; byte < 256; ++byte) {
        const bool letter =
            (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte >= 127;
        const bool starts_name = letter || byte == '_';
        const bool in_name = starts_name || (byte >= '0' && byte <= '9') || byte == '-' ||
                             byte == '.' || byte == ':';
        const bool blank = byte == ' ' || (byte >= '\t' && byte <= '\r');
        const bool plain = byte > 0 && byte < 128 && byte != '<' && byte != '&';
        classes[static_cast<std::size_t>(byte)] =
            static_cast<uint8_t>((blank ? white_space : 0) | (starts_name ? name_start : 0) |
                                 (in_name ? name_byte : 0) | (plain ? plain_text : 0));
    }
    return classes;
}();

bool Is(byte_class wanted, char c) {
    return (byte_classes[static_cast<unsigned char>(c)] & wanted) != 0;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether more than `limit` places look like the beginning of an element. Elements cannot be nested
// deeper than there are such places, and most documents have fewer than they may nest deep: so they
// need no closer look.
bool HasMoreStartTags(std::string_view text, int limit) {
    int found = 0;
    for (std::size_t at = text.find('<'); at != std::string_view::npos;
         at = text.find('<', at + 1)) {
        // Behind the text there is a NUL.
        if (Is(name_start, text.data()[at + 1]) && ++found > limit) {
            return true;
        }
    }
    return false;
}

// Reads text the way the library's parser does, building nothing. Each routine moves the position
// past what it names and returns false where the parser gives the whole text up.
class scanner {
  public:
    explicit scanner(const char* text) : p_(text) {
        if (StartsWith("\xEF\xBB\xBF")) {
            encoding_ = TIXML_ENCODING_UTF8;
        }
    }

    bool NestsDeeper(int limit);

  private:
    enum class tag { open, empty, broken };

    [[nodiscard]] bool StartsWith(std::string_view text) const {
        return std::strncmp(p_, text.data(), text.size()) == 0;
    }
    void SkipWhiteSpace();
    bool SkipCharacter();
    bool SkipReference();
    bool SkipPast(const char* end, std::size_t from);
    bool SkipName();
    bool SkipQuoted();
    bool SkipAttribute();
    bool SkipDeclaration(bool at_top);
    bool SkipEndTag();
    tag SkipStartTag();

    const char* p_;
    // The parser knows the encoding from a byte order mark, or from a declaration at the top.
    TiXmlEncoding encoding_ = TIXML_ENCODING_UNKNOWN;
};

void scanner::SkipWhiteSpace() {
    for (;;) {
        if (Is(white_space, *p_)) {
            ++p_;
        } else if (encoding_ == TIXML_ENCODING_UTF8 && *p_ == '\xEF' &&
                   (StartsWith("\xEF\xBB\xBF") || StartsWith("\xEF\xBF\xBE") ||
                    StartsWith("\xEF\xBF\xBF"))) {
            p_ += 3;
        } else {
            return;
        }
    }
}

// One character of text or of a quoted value. In UTF-8 text whatever follows a leading byte belongs
// to the character, even if it is a "<" or a quotation mark.
bool scanner::SkipCharacter() {
    if (Is(plain_text, *p_)) {
        ++p_;
        return true;
    }
    if (*p_ == '&' && p_[1] == '#' && p_[2] != '\0') {
        return SkipReference();
    }
    p_ += encoding_ == TIXML_ENCODING_UTF8
              ? TiXmlBase::utf8ByteTable[static_cast<unsigned char>(*p_)]
              : 1;
    return true;
}

// A character reference. The parser reads its digits from the next ";" backwards to the nearest "x"
// or "#", so a reference without ";" of its own swallows everything up to the end of the next one.
bool scanner::SkipReference() {
    const bool hexadecimal = p_[2] == 'x';
    const char* const end = std::strchr(p_ + (hexadecimal ? 3 : 2), ';');
    if (end == nullptr) {
        return false;
    }
    const char* digit = end - 1;
    while (*digit != (hexadecimal ? 'x' : '#')) {
        const bool valid = hexadecimal ? hex_digit_value(*digit) >= 0 : IsDigit(*digit);
        if (!valid) {
            return false;
        }
        --digit;
    }
    p_ = end + 1;
    return true;
}

bool scanner::SkipPast(const char* end, std::size_t from) {
    const char* const found = std::strstr(p_ + from, end);
    if (found == nullptr) {
        return false;
    }
    p_ = found + std::strlen(end);
    return true;
}

bool scanner::SkipName() {
    if (!Is(name_start, *p_)) {
        return false;
    }
    while (Is(name_byte, *p_)) {
        ++p_;
    }
    return *p_ != '\0';
}

bool scanner::SkipQuoted() {
    const char quote = *p_++;
    while (*p_ != '\0' && *p_ != quote) {
        if (!SkipCharacter()) {
            return false;
        }
    }
    return *p_++ != '\0';
}

bool scanner::SkipAttribute() {
    if (!SkipName()) {
        return false;
    }
    SkipWhiteSpace();
    if (*p_ != '=') {
        return false;
    }
    ++p_;
    SkipWhiteSpace();
    if (*p_ == '"' || *p_ == '\'') {
        return SkipQuoted();
    }
    while (*p_ != '\0' && !Is(white_space, *p_) && *p_ != '/' && *p_ != '>') {
        if (*p_ == '"' || *p_ == '\'') {
            return false;
        }
        ++p_;
    }
    return *p_ != '\0';
}

// Declarations are few, so the library reads them itself: their attributes may be quoted, and the
// one at the top decides how the rest of the text is read.
bool scanner::SkipDeclaration(bool at_top) {
    TiXmlDeclaration declaration;
    p_ = declaration.Parse(p_, nullptr, encoding_);
    if (p_ == nullptr) {
        return false;
    }
    if (at_top && encoding_ == TIXML_ENCODING_UNKNOWN) {
        const char* const name = declaration.Encoding();
        const bool utf8 = *name == '\0' || strncasecmp(name, "UTF-8", 5) == 0 ||
                          strncasecmp(name, "UTF8", 4) == 0;
        encoding_ = utf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
    }
    return true;
}

// The name is not compared: where it is not the element's, the parser gives up.
bool scanner::SkipEndTag() {
    p_ += 2;
    return SkipName() && *p_++ == '>';
}

scanner::tag scanner::SkipStartTag() {
    ++p_;
    SkipWhiteSpace();
    if (!SkipName()) {
        return tag::broken;
    }
    for (;;) {
        SkipWhiteSpace();
        if (*p_ == '/') {
            ++p_;
            return *p_++ == '>' ? tag::empty : tag::broken;
        }
        if (*p_ == '>') {
            ++p_;
            return tag::open;
        }
        if (!SkipAttribute()) {
            return tag::broken;
        }
    }
}

bool scanner::NestsDeeper(int limit) {
    int depth = 0;
    bool going_on = true;
    while (going_on) {
        SkipWhiteSpace();
        if (depth > 0 && *p_ != '<') {
            while (*p_ != '\0' && *p_ != '<') {
                if (!SkipCharacter()) {
                    return false;
                }
            }
        }
        if (*p_ != '<') {
            return false;
        }
        if (depth > 0 && p_[1] == '/') {
            going_on = SkipEndTag();
            --depth;
        } else if (strncasecmp(p_, "<?xml", 5) == 0) {
            going_on = SkipDeclaration(depth == 0);
        } else if (StartsWith("<!--")) {
            going_on = SkipPast("-->", 4);
        } else if (StartsWith("<![CDATA[")) {
            going_on = SkipPast("]]>", 9);
        } else if (Is(name_start, p_[1])) {
            if (depth == limit) {
                return true;
            }
            const tag start = SkipStartTag();
            going_on = start != tag::broken;
            depth += start == tag::open ? 1 : 0;
        } else {
            going_on = SkipPast(">", 1);
        }
    }
    return false;
}

}  // namespace

bool NestsDeeper(const char* text, int limit) {
    return HasMoreStartTags(text, limit) && scanner(text).NestsDeeper(limit);
}

}  // namespace veltrancord
