// What there is in documents: elements, attributes and their texts, gathered over all that stand at
// one place, and over all members of a numbered family.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace veltrancord::tool {

struct document_shape {
    std::string name;                // as stored; of a family without the number
    uint32_t first = 0;              // of a family
    uint32_t last = 0;               // of a family; 0: is none
    std::vector<std::string> texts;  // of the elements that have one, in the order found
    std::vector<std::pair<std::string, std::vector<std::string>>> attributes;
    std::vector<document_shape> children;  // in the order found

    [[nodiscard]] bool is_family() const { return last > 0; }
};

// The shape of the element and all below. Elements deeper than the library's own bound are not
// there.
[[nodiscard]] document_shape shape_of(const TiXmlElement& root);

}  // namespace veltrancord::tool
