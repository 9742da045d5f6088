// Reads simple types: what a text may be.
#pragma once

#include <tinyxml.h>

#include <functional>
#include <memory>
#include <string_view>

#include "schema/markup.h"

namespace veltrancord::schema {

// The built-in type of that name without prefix, "unsignedShort". Return: null where it is not
// read.
[[nodiscard]] std::unique_ptr<simple_type> built_in_type(std::string_view name);

// What to write instead of a built-in type that is not read.
[[nodiscard]] std::string instead_of_built_in(std::string_view name);

// Finds the simple type that a reference in `where` names; null, and told, where there is none.
using type_finder =
    std::function<const simple_type*(const TiXmlElement& where, const std::string& reference)>;

// Reads an xs:simpleType into `type`, its name excepted. Mistakes are told.
void read_simple_type(markup& xml, const TiXmlElement& element, const type_finder& find,
                      simple_type& type);

}  // namespace veltrancord::schema
