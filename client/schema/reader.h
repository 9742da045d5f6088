// Reads a description from the text of a file "<Document>.xsd". Only the subset that docs/schema.md
// states is read; whatever else stands there is a mistake, and nothing is passed over in silence.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "schema/description.h"

namespace veltrancord::schema {

inline constexpr std::size_t max_description_size = 4 << 20;  // bytes of a file

struct mistake {
    std::string file;
    std::size_t line = 0;  // from 1; 0: the file as a whole
    std::string text;      // what is wrong, and what to write instead
};

// `document` is the name that the file promises: that of the root element. `file` is named in the
// mistakes, which are appended in the order of their lines.
//
// Return: the description, or null where the file has a mistake. It is then in `mistakes`.
[[nodiscard]] std::unique_ptr<const document_description> read_description(
    const std::string& document, const std::string& file, std::string text,
    std::vector<mistake>& mistakes);

// What needs no checking before a value is compared, but should be right in a product: gaps in
// families, patterns that do not compile, elements that are still guesses ("schema draft").
void look_over(const document_description& document, const std::string& file,
               std::vector<mistake>& mistakes);

}  // namespace veltrancord::schema
