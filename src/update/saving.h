// Saving changed documents to their files. Server thread only.
#pragma once

#include <cstdint>
#include <string_view>

#include "store/document_set.h"
#include "store/path.h"

namespace veltrancord {

// Sets the value at `path` in the document of the record, as SetXmlValue, and marks the record.
//
// Return: as SetXmlValue; after a failure nothing is marked.
[[nodiscard]] int32_t change_value(XmlDocNode& node, const XmlPath& path, std::string_view value,
                                   save_flag flag);

// Marks a record as changed. Every other change of a loaded document begins with its NewEdition()
// and ends here: a save looks for records only when one was marked.
void mark_for_saving(XmlDocNode& node, save_flag flag);

// Saves every document marked DOC_SAVE_FLASH to its file, each in one replacement, and clears both
// flags: the file then holds the memory-only changes of that document as well. A document that
// cannot be saved keeps its flags, with one line on standard error, and is tried again by the next
// call. Called after every command. Does nothing while the process is being terminated.
void save_changed_documents();

// Saves every document marked DOC_SAVE_MEMORY. One that cannot be saved is marked DOC_SAVE_FLASH
// too: the client asked for it to be on flash, so it is tried again after the commands that follow.
//
// Return: result_ok, or result_not_found when no document is loaded or the process is being
// terminated.
[[nodiscard]] int32_t save_memory_changes();

}  // namespace veltrancord
