// Documents as files: made from the elements of an exchange file, and removed. Server thread only.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string_view>

#include "store/document_set.h"

namespace veltrancord {

// Gives the configuration directory a file named like the element and holding it (printed at depth
// 1, so that it begins with an indentation: that is what the files of devices in the field look
// like), and loads it in place of a document of that name. The new file is written aside, read back
// from there and then put in place in one step; until that has happened the old file and the old
// document stay. The original of a damaged file is kept (leaf/kept_original.h). An element whose
// file cannot be created is skipped without a word, and one whose file the next start would skip, a
// name over 63 or a path over 127 characters, with a line on standard error.
//
// Return: result_ok, also for a skipped element; result_failed when the file could not be written
// whole (one line on standard error) or not be read back.
[[nodiscard]] int32_t create_document(const TiXmlElement& element);

// Removes what `argument` names; a final line feed is ignored.
// ".*": every document with its file. "<document>.*", written exactly as the document is named:
// that document with its file. Any other path: the element that it leads to, a final "*" left
// out; its document is marked to be saved. Removed files are gone from the device when the call
// returns.
//
// Return: result_ok; result_bad_argument for a path that does not split; result_not_found when no
// such document or element is there.
[[nodiscard]] int32_t remove_setting(std::string_view argument);

}  // namespace veltrancord
