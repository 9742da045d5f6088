// Listing a subtree of settings as "key=value" lines.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "handler/reply_text.h"

namespace veltrancord {

// Key prefixes that a filtered read hides; empty: nothing is filtered.
using HiddenPrefixes = std::span<const std::string_view>;

// A key is built in a field of this size, NUL included; a longer one is cut.
inline constexpr std::size_t listing_key_size = 256;

// Appends a line for each element below `top` that has text, an element's own line after those of
// its descendants. A key is `prefix` and the decoded names below `top`, joined with ".". A secret
// is decoded. With a filter, children of `top` that are hidden are left out with all below them;
// further down only the line of a hidden element is left out.
//
// A line fits when the length of its value and of what this call has listed before, plus 2, is
// within `capacity`: the key does not count.
//
// Return: 0, or -1 when a line does not fit or memory could not be had; what was listed before
// stays in `out`.
[[nodiscard]] int32_t ListXmlSubtree(const TiXmlNode& top, reply_text& out, uint32_t capacity,
                                     std::string_view prefix, HiddenPrefixes filter);

// Whether a filtered read shows the element: its key begins with none of the prefixes, compared
// byte by byte ("Account.User" hides "Account.UserGroup" too), and it has no attribute AllowToShow
// but "YES" in any case.
[[nodiscard]] bool IsXmlNodeVisible(std::string_view key, const TiXmlElement& element,
                                    HiddenPrefixes filter);

}  // namespace veltrancord
