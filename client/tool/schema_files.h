// Files of "schema draft" and "schema doc".
#pragma once

#include <string>
#include <vector>

namespace veltrancord::tool {

// The names of the documents in a directory, sorted: of its files those that do not begin with a
// dot. Return: false with errno set when it cannot be read.
[[nodiscard]] bool document_names(const std::string& directory, std::vector<std::string>& names);

// Makes a file that everybody may read. Return: false with errno set; EEXIST when it is there.
[[nodiscard]] bool create_file(const std::string& file, const std::string& text);

// Makes it or replaces what is there. Return: false with errno set.
[[nodiscard]] bool make_file(const std::string& file, const std::string& text);

}  // namespace veltrancord::tool
