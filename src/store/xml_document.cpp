#include "store/xml_document.h"

#include <cstring>
#include <string>
#include <string_view>

#include "store/nesting.h"

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

XmlDocument::XmlDocument(const char* name) : TiXmlDocument(name) {
    // No row or column of a node is ever asked for, and counting them costs a third of the parsing.
    SetTabSize(0);
}

bool XmlDocument::LoadXMLFile(const char* text) {
    child_indexes_.Drop();
    Clear();
    location.Clear();
    ClearError();
    const std::string_view whole(text);
    if (whole.empty()) {
        SetError(TIXML_ERROR_DOCUMENT_EMPTY, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    }
    const std::string normalised = NormaliseLineEnds(whole);
    if (NestsDeeper(normalised.c_str(), max_xml_nesting)) {
        SetError(TIXML_ERROR_READING_ELEMENT_VALUE, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    }
    // The library keeps a mark that it has once seen, and writes it at each save from then on.
    has_byte_order_mark_ = has_byte_order_mark_ || whole.starts_with("\xEF\xBB\xBF");
    Parse(normalised.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    return !Error();
}

}  // namespace veltrancord
