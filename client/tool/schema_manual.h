// "schema doc": a manual of all settings from their descriptions, as one HTML page and as Markdown.
// Every setting has an anchor: its path, of a family that of the first member.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "schema/description.h"

namespace veltrancord::tool {

// A setting or a group of settings. Families come once.
struct manual_entry {
    std::string anchor;  // "Account.User1.Username"
    std::string shown;   // "Account.User1 to User20.Username"
    const schema::element_description* element = nullptr;
};

// In the order of the description, groups before what is in them.
[[nodiscard]] std::vector<manual_entry> manual_entries(
    const schema::document_description& document);

// The whole page, in the language asked for where it is told in it.
[[nodiscard]] std::string html_manual(
    const std::vector<const schema::document_description*>& documents, std::string_view language);

// The file of one document.
[[nodiscard]] std::string markdown_manual(const schema::document_description& document,
                                          std::string_view language);

}  // namespace veltrancord::tool
