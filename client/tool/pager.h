// Long output on a terminal.
#pragma once

#include <string_view>

namespace veltrancord::tool {

// Writes all of `text`. Return: false when that failed.
bool write_whole(int fd, std::string_view text);

// Shows `text` through VELTRANCORD_PAGER or PAGER, else "less -FRX", when standard output is a
// terminal and the text higher than it; writes it plainly otherwise, and where there is no such
// pager. Return: as above.
bool show_paged(std::string_view text);

}  // namespace veltrancord::tool
