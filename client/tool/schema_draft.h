// "schema draft": a first description of a document, from what is in it.
#pragma once

#include <string>

#include "document_shape.h"

namespace veltrancord::tool {

// The text of the file "<Document>.xsd". Each type is a guess and marked as one; every element may
// be missing, and families are whole.
[[nodiscard]] std::string draft_description(const document_shape& document);

// Text as it may stand in XML, in an attribute, too.
[[nodiscard]] std::string xml_escaped(std::string_view text);

}  // namespace veltrancord::tool
