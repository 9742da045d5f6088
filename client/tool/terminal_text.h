// What reaches a terminal: values and events hold whatever bytes somebody has written, and some of
// them make a terminal clear itself, type or lie.
#pragma once

#include <string>
#include <string_view>

namespace veltrancord::tool {

// A colour of the tool's own stands in its output as this and the rest of the sequence ("31m"); no
// text of the service holds a NUL byte.
inline constexpr std::string_view colour_mark{"\0[", 2};

// The text as a terminal may get it: marked colours as its sequences, line feeds, tabs and NUL
// bytes as they are, other control bytes and what is no UTF-8 as "\x1b". Without `utf8` whatever is
// not ASCII, too.
std::string terminal_text(std::string_view text, bool utf8);

// Whether the locale of the environment says UTF-8.
bool locale_is_utf8();

// Writes a line on standard error, where it is a terminal as above.
void print_to_error(std::string_view line);

}  // namespace veltrancord::tool
