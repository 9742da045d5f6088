// Reading text into a document, above all how deep it nests: against the library's own parser.
#include <iterator>
#include <string>

#include "fuzz_target.h"
#include "support/markup_pieces.h"
#include "support/same_xml.h"
#include "xml/document.h"

namespace veltrancord::fuzz {
namespace {

constexpr std::size_t longest_text = 8192;

// A byte is a piece of markup, or itself.
std::string text_of(input_reader& input) {
    std::string text;
    const int kind = input.byte();
    if (kind % 8 == 0) {  // near the bound
        for (int open = 490 + kind / 8; open > 0; --open) {
            text += "<a>";
        }
    }
    while (!input.empty() && text.size() < longest_text) {
        const uint8_t byte = input.byte();
        if (byte < std::size(markup_pieces)) {
            text += markup_pieces[byte];
        } else if (byte != 0) {
            text += static_cast<char>(byte);
        }
    }
    return text;
}

}  // namespace

void try_input(input_reader& input) {
    const std::string text = text_of(input);
    TiXmlDocument expected;
    expected.SetTabSize(0);
    expected.Parse((text + std::string(4, '\0')).c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    XmlDocument document("");
    const bool loaded = document.LoadXMLFile(text);
    require(loaded == !document.Error(), "what loading returns");
    if (xml_depth(expected) > max_xml_nesting) {
        require(!loaded && document.NestsTooDeep() && document.NoChildren(),
                "the bound of nesting");
        return;
    }
    // Carriage returns are line feeds only here; they stand nowhere but among white space then.
    require(!document.NestsTooDeep(), "too deep without being so");
    if (text.find('\r') == std::string::npos) {
        require(loaded == !expected.Error(), "whether there is a fault");
        require(same_xml(document, expected), "the library's document");
    }
}

}  // namespace veltrancord::fuzz
