// The lines of the write commands, applied one by one to the loaded documents. Server thread only.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string_view>

namespace veltrancord {

// Sets the text of the element at `path`, creates missing elements, and marks the document: to be
// saved after the command when `to_flash`, else as changed in memory only.
//
// Return: result_ok, and the element at `*element`; result_bad_argument for a path that does not
// split, or a path or value over its bound (update/lines.h); result_not_found when no such document
// is loaded; result_store_failed when the store could not apply the value. After a failure nothing
// of the line is applied.
[[nodiscard]] int32_t set_element_value(std::string_view path, std::string_view value,
                                        bool to_flash, const TiXmlElement** element = nullptr);

// Sets the attribute that the last component of `path` names, on the element before it, and marks
// the document to be saved. An attribute is added where there is none, an element never: clients
// use this to annotate what exists.
//
// Return: result_ok; result_bad_argument and result_not_found as above; result_store_failed when
// there is no such element, and for a new name or a value with which the saved document could not
// be read whole again (xml/syntax.h).
[[nodiscard]] int32_t set_attribute_value(std::string_view path, std::string_view value);

// Applies the lines of `text` one by one, and queues the programs that their elements name
// (update/program_queue.h).
//
// Return: the number of lines applied, or the result of the first line that failed; the lines
// before it stay applied, and their programs queued. result_bad_argument for an empty text.
[[nodiscard]] int32_t write_lines(std::string_view text, bool to_flash);

// The same with attributes, which start no programs.
[[nodiscard]] int32_t writeattr_lines(std::string_view text);

}  // namespace veltrancord
