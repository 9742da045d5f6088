// Documents made from the elements of an exchange file. Server thread only.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string_view>

#include "store/document_set.h"

namespace veltrancord {

// The loaded document that an element of that name stands for, or null. A record keeps the first
// 63 characters of a name.
[[nodiscard]] XmlDocNode* find_document_of(std::string_view element_name);

// Gives the configuration directory a file named like the element and holding it (printed at depth
// 1, so that it begins with an indentation: that is what the files of devices in the field look
// like), and loads it in place of a document of that name. The new file is written aside, read back
// from there and then put in place in one step; until that has happened the old file and the old
// document stay. An element whose file cannot be created is skipped without a word.
//
// Return: result_ok, also for a skipped element; result_failed when the file could not be written
// whole (one line on standard error) or not be read back.
[[nodiscard]] int32_t create_document(const TiXmlElement& element);

}  // namespace veltrancord
