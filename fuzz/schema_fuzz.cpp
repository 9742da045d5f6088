// Descriptions of settings: the reader takes any text, tells a mistake or gives a description, and
// what it gives can be walked, and checks any document.
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "schema/check.h"
#include "schema/reader.h"

namespace veltrancord::fuzz {
namespace {

constexpr std::string_view head =
    "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'><xs:element name='D'>";
constexpr std::string_view tail = "</xs:element></xs:schema>";

// The text of a description as it is or, so that the made-up part is soon within one, between the
// head and the tail of one.
std::string description_text(input_reader& input) {
    const bool whole = input.byte() % 2 == 1;
    const std::string piece(input.piece());
    return whole ? piece : std::string(head) + piece + std::string(tail);
}

void check_document_against(const schema::document_description& description,
                            const std::string& text) {
    TiXmlDocument document;
    std::string problem;
    std::size_t line = 0;
    if (!schema::read_document(text, document, problem, line)) {
        require(!problem.empty(), "a document is refused with a reason");
        return;
    }
    std::size_t last = 0;
    for (const schema::violation& one :
         schema::check_document(description, *document.RootElement())) {
        require(!schema::sentence_of(one).empty(), "a violation has a sentence");
        require(one.line >= last, "violations come in the order of the lines");
        last = one.line;
    }
}

void check_settings_of(const schema::document_description& description, const std::string& value) {
    for (const schema::described_setting& one : schema::settings_of(description)) {
        if (one.element->value == nullptr) {
            continue;
        }
        const auto broken = schema::check_text(*one.element->value, value);
        if (broken && broken->nearest) {
            require(!schema::check_text(*one.element->value, *broken->nearest),
                    "the nearest value is allowed");
        }
        if (one.element->default_value) {
            require(!schema::check_text(*one.element->value, *one.element->default_value),
                    "the default is allowed");
        }
    }
}

}  // namespace

void try_input(input_reader& input) {
    std::vector<schema::mistake> mistakes;
    const auto description =
        schema::read_description("D", "D.xsd", description_text(input), mistakes);
    require((description == nullptr) == !mistakes.empty(), "a description, or a mistake");
    for (const schema::mistake& one : mistakes) {
        require(!one.text.empty(), "a mistake has a text");
    }
    if (description == nullptr) {
        return;
    }
    schema::look_over(*description, "D.xsd", mistakes);
    const std::string value(up_to_nul(input.piece()));
    check_settings_of(*description, value);
    check_document_against(*description, std::string(input.rest()));
}

}  // namespace veltrancord::fuzz
