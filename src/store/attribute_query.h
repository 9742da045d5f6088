// Attribute queries.
#pragma once

#include <cstdint>
#include <string_view>

#include "handler/reply_text.h"

namespace veltrancord {

// Looks up the attribute that the last component of `path` names, of the element before it.
// `value` is valid until the document changes.
//
// Return: the value's length (0: an empty attribute), result_not_found or result_bad_argument.
[[nodiscard]] int32_t ReadSingleAttr(std::string_view path, std::string_view& value);

// Lists attributes as "key=value" lines into `out`, opened and empty.
//
// Return: the listing's length (0: nothing matched), result_not_found, result_bad_argument (also a
// listing that does not fit) or result_too_large.
[[nodiscard]] int32_t ReadAttributeHandleFun(std::string_view path, reply_text& out);

}  // namespace veltrancord
