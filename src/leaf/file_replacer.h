// Replacing the content of a file so that at every instant the file is wholly the old one or wholly
// the new one, whatever is cut.
#pragma once

#include <cstdint>
#include <string_view>

namespace veltrancord {

// Gives the file at `path` the content `content`; the file is created when it is missing.
//
// Return: result_ok, or result_failed after one line on standard error that names the file and the
// reason; the old content is then still there, and nothing is left behind.
[[nodiscard]] int32_t replace_file(const char* path, std::string_view content);

// Whether a directory entry's name is that of a helper file that a replacement cut in the middle
// may have left: such an entry is never a document and is never counted.
[[nodiscard]] bool is_replacement_leftover(std::string_view name);

// Removes what interrupted replacements left in `directory`; called once before anything is loaded.
void clear_replacement_leftovers(const char* directory);

}  // namespace veltrancord
