// Loading and writing XML documents: against the library's own parser and printer.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_target.h"
#include "xml/document.h"
#include "xml/nesting.h"
#include "xml/syntax.h"
#include "xml/text.h"

namespace veltrancord::fuzz {
namespace {

// Elements within elements, the outermost counting as 1; without recursion.
int depth_of(const TiXmlNode& document) {
    int deepest = 0;
    int depth = 0;
    const TiXmlNode* node = document.FirstChild();
    while (node != nullptr) {
        if (node->ToElement() != nullptr) {
            deepest = std::max(deepest, depth + 1);
        }
        if (node->FirstChild() != nullptr) {
            node = node->FirstChild();
            ++depth;
            continue;
        }
        while (node != &document && node->NextSibling() == nullptr) {
            node = node->Parent();
            --depth;
        }
        node = node == &document ? nullptr : node->NextSibling();
    }
    return deepest;
}

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

void check_nesting(const std::string& text) {
    const std::string padded = text + std::string(xml_text_padding, '\0');
    TiXmlDocument document;
    document.Parse(padded.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    const int depth = depth_of(document);
    for (const int limit : {1, 2, 3, 5, 20}) {
        const bool deeper = NestsDeeper(padded.c_str(), limit);
        require(deeper || depth <= limit, "deeper than measured");
        require(!deeper || depth > limit || document.Error(), "measured deeper than it is");
    }
}

}  // namespace

void try_input(input_reader& input) {
    const std::string text(up_to_nul(input.rest()));
    if (!NestsDeeper((text + std::string(xml_text_padding, '\0')).c_str(), max_xml_nesting)) {
        check_nesting(text);
    }

    XmlDocument document("D");
    const bool parsed = document.LoadXMLFile(text.c_str());
    require(parsed == !document.Error(), "what loading returns");
    require(depth_of(document) <= max_xml_nesting, "the bound of nesting");
    std::string printed;
    PrintXml(document, 0, printed);
    require(printed == printed_by_library(document), "printed as the library prints");

    // A file that was written once is written the same ever after.
    const std::string first = SerialiseXmlDoc(document);
    XmlDocument again("D");
    if (!parsed || !holds_whole_text(document) || !again.LoadXMLFile(first.c_str()) ||
        !holds_whole_text(again)) {
        return;
    }
    const std::string second = SerialiseXmlDoc(again);
    XmlDocument third("D");
    if (third.LoadXMLFile(second.c_str())) {
        require(SerialiseXmlDoc(third) == second, "a saved document stays as it is");
    }
}

}  // namespace veltrancord::fuzz
