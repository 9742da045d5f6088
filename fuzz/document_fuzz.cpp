// Loading and writing XML documents: against the library's own parser and printer.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_target.h"
#include "xml/document.h"
#include "xml/syntax.h"
#include "xml/text.h"

namespace veltrancord::fuzz {
namespace {

std::string printed_by_library(const TiXmlDocument& document) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const memory = ::open_memstream(&text, &size);
    require(memory != nullptr, "a stream in memory");
    document.Print(memory, 0);
    std::fclose(memory);
    std::string printed(text, size);
    std::free(text);
    return printed;
}

// The library writes a declaration's values as they stand, and files are to be as it writes them.
bool holds_whole_values(const TiXmlNode& node) {
    const TiXmlDeclaration* const declaration = node.ToDeclaration();
    return declaration == nullptr || std::string(declaration->Version())
                                             .append(declaration->Encoding())
                                             .append(declaration->Standalone())
                                             .find('"') == std::string::npos;
}

// A file may bring in characters that are cut short, which swallow a part of what follows each time
// they are read. Writing such a text is refused; what is loaded already is not judged here.
bool holds_whole_text(const TiXmlNode& node) {
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        bool whole = holds_whole_text(*child) && holds_whole_values(*child);
        whole = whole && (child->ToText() == nullptr || IsXmlTextWhole(*child, child->ValueStr()));
        const TiXmlElement* const element = child->ToElement();
        const TiXmlAttribute* attribute = element != nullptr ? element->FirstAttribute() : nullptr;
        for (; whole && attribute != nullptr; attribute = attribute->Next()) {
            whole = IsXmlTextWhole(*child, attribute->ValueStr());
        }
        if (!whole) {
            return false;
        }
    }
    return true;
}

}  // namespace

void try_input(input_reader& input) {
    const std::string text(up_to_nul(input.rest()));
    XmlDocument document("D");
    const bool parsed = document.LoadXMLFile(text);
    require(parsed == !document.Error(), "what loading returns");
    std::string printed;
    PrintXml(document, 0, printed);
    require(printed == printed_by_library(document), "printed as the library prints");

    // A file that was written once is written the same ever after.
    const std::string first = SerialiseXmlDoc(document);
    XmlDocument again("D");
    if (!parsed || !holds_whole_text(document) || !again.LoadXMLFile(first) ||
        !holds_whole_text(again)) {
        return;
    }
    const std::string second = SerialiseXmlDoc(again);
    XmlDocument third("D");
    if (third.LoadXMLFile(second)) {
        require(SerialiseXmlDoc(third) == second, "a saved document stays as it is");
    }
}

}  // namespace veltrancord::fuzz
