#include "xml/document.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "leaf/allocation_record.h"
#include "xml/nesting.h"

namespace veltrancord {

namespace {

// The text with its line ends as "\n", followed by the NUL bytes that parsing it needs.
std::string NormaliseLineEnds(std::string_view text) {
    std::string normalised;
    normalised.reserve(text.size() + xml_text_padding);
    for (;;) {
        const std::size_t end = text.find('\r');
        normalised.append(text.substr(0, end));
        if (end == std::string_view::npos) {
            break;
        }
        normalised += '\n';
        text.remove_prefix(end + 1);
        if (text.starts_with('\n')) {
            text.remove_prefix(1);
        }
    }
    normalised.append(xml_text_padding, '\0');
    return normalised;
}

}  // namespace

uint64_t XmlDocument::last_edition_ = 0;

XmlDocument::XmlDocument(const char* name) : TiXmlDocument(name) {
    // No row or column of a node is ever asked for, and counting them costs a third of the parsing.
    SetTabSize(0);
}

// Return: false when there is nothing to parse, or too deep; the document then tells why.
bool XmlDocument::PrepareText(const char* text, std::string& normalised) {
    NewEdition();
    child_indexes_.Drop();
    Clear();
    location.Clear();
    ClearError();
    const std::string_view whole(text);
    if (whole.empty()) {
        SetError(TIXML_ERROR_DOCUMENT_EMPTY, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    }
    normalised = NormaliseLineEnds(whole);
    if (NestsDeeper(normalised.c_str(), max_xml_nesting)) {
        SetError(TIXML_ERROR_READING_ELEMENT_VALUE, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    }
    // The library keeps a mark that it has once seen, and writes it at each save from then on.
    has_byte_order_mark_ = has_byte_order_mark_ || whole.starts_with("\xEF\xBB\xBF");
    return true;
}

bool XmlDocument::LoadXMLFile(const char* text) {
    std::string normalised;
    if (!PrepareText(text, normalised)) {
        return false;
    }
    Parse(normalised.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    return !Error();
}

// The document points only to nodes that are gone when memory has run out. Its own text about an
// error cannot be among what is taken back: once that is set, the library allocates nothing more.
bool XmlDocument::LoadXMLFileOrNothing(const char* text) {
    std::string normalised;
    if (!PrepareText(text, normalised)) {
        return false;
    }
    allocation_record record;
    try {
        Parse(normalised.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    } catch (const std::bad_alloc&) {
        record.free_all();
        firstChild = nullptr;
        lastChild = nullptr;
        throw;
    }
    return !Error();
}

}  // namespace veltrancord
