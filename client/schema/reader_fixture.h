// Descriptions for tests, from what stands inside <xs:schema>; the document is called "D".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "schema/reader.h"

namespace veltrancord::schema {

inline std::unique_ptr<const document_description> read_body(const std::string& body,
                                                             std::vector<mistake>& mistakes) {
    return read_description(
        "D", "D.xsd",
        "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>" + body + "</xs:schema>",
        mistakes);
}

inline std::unique_ptr<const document_description> read_body(const std::string& body) {
    std::vector<mistake> mistakes;
    return read_body(body, mistakes);
}

}  // namespace veltrancord::schema
