#include "xml/syntax.h"

#include <algorithm>
#include <cstddef>

#include "xml/document.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

// The longest character of UTF-8 as the parser knows it.
constexpr std::size_t longest_character = 4;

bool BeginsName(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' ||
           byte >= 127;
}

bool ContinuesName(char c) {
    return BeginsName(c) || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == ':';
}

bool EndsWithinCharacter(std::string_view text) {
    const std::size_t looked_at = std::min(text.size(), longest_character - 1);
    for (std::size_t left = 1; left <= looked_at; ++left) {
        const auto byte = static_cast<unsigned char>(text[text.size() - left]);
        if (static_cast<std::size_t>(TiXmlBase::utf8ByteTable[byte]) > left) {
            return true;
        }
    }
    return false;
}

// Whether a character is cut short before an entity, whose "&" the parser would then take for a
// part of that character: "\xE9&" is read back as "\xE9&amp;", one "amp;" longer at each start.
bool CutsCharacterBeforeEntity(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const auto announced =
            static_cast<std::size_t>(std::max(1, TiXmlBase::utf8ByteTable[byte]));
        const std::string_view rest = text.substr(at + 1, announced - 1);
        if (std::any_of(rest.begin(), rest.end(), IsWrittenAsEntity)) {
            return true;
        }
        at += announced;
    }
    return false;
}

// Whether the parser will take the saved document for UTF-8: it begins with a byte order mark, or
// its first declaration names that encoding or none.
bool IsUtf8(const TiXmlDocument& document) {
    const auto* const loaded = dynamic_cast<const XmlDocument*>(&document);
    if (loaded != nullptr && loaded->HasByteOrderMark()) {
        return true;
    }
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        if (const TiXmlDeclaration* const declaration = node->ToDeclaration()) {
            return DeclaresUtf8(*declaration);
        }
    }
    return false;
}

}  // namespace

bool IsXmlName(std::string_view name) {
    return !name.empty() && BeginsName(name.front()) &&
           std::all_of(name.begin(), name.end(), ContinuesName);
}

bool IsXmlTextWhole(const TiXmlNode& node, std::string_view text) {
    const TiXmlDocument* const document = node.GetDocument();
    return document == nullptr ||
           (!EndsWithinCharacter(text) && !CutsCharacterBeforeEntity(text)) || !IsUtf8(*document);
}

}  // namespace veltrancord
