// Values of the built-in types, as texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "schema/description.h"

namespace veltrancord::schema {

// The text as it counts for the type: of all but strings without white space at its ends, and with
// one blank for each stretch of it inside.
[[nodiscard]] std::string counted_text(value_kind kind, std::string_view text);

// Below 0, 0 or above 0. Both are values of the kind, which has an order, `right` without a zone;
// nothing where the zone of `left` decides and is not known.
[[nodiscard]] std::optional<int> order_of(value_kind kind, const std::string& left,
                                          const std::string& right);

// Whether two values of the kind are the same: "010" and "10" are as numbers, not as texts.
[[nodiscard]] bool same_value(value_kind kind, const std::string& left, const std::string& right);

// Whether a time or date names its zone.
[[nodiscard]] bool has_zone(value_kind kind, const std::string& value);

// A number without needless digits; other values as counted_text().
[[nodiscard]] std::string shortest_form(value_kind kind, const std::string& value);

// The nearest value that the type allows, for a hint to people; nothing where none is near.
[[nodiscard]] std::optional<std::string> nearest_value(const simple_type& type,
                                                       const std::string& value);

// How many letters have to be changed, added, left out or swapped with the next to make one text of
// the other; letter case counts for little. Texts over 64 bytes are compared by their beginnings.
[[nodiscard]] unsigned distance(std::string_view left, std::string_view right);

}  // namespace veltrancord::schema
