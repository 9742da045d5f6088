// Exchange files: one XML file whose root element holds whole documents, each as a child element
// that bears the document's name. Documents are moved between them and the loaded set. Server
// thread only.
#pragma once

#include <cstdint>
#include <string_view>

#include "xml/document.h"

namespace veltrancord {

// Loads an exchange file as the XML library itself would load it: only reading is needed, and the
// text ends at its first NUL. Anything but a regular file fails, and nothing is waited for.
//
// Return: false when the file cannot be read whole, is empty, does not parse or nests too deep.
[[nodiscard]] bool load_exchange_file(const char* path, XmlDocument& exchange);

// Each child element of the file's root element replaces the document of its name, or becomes a new
// document (update/documents.h). Neither marks anything for saving nor counts as a change
// to be backed up: the files are written at once.
//
// Return: result_ok; result_unparsable when the path is over 255 characters or the file cannot be
// loaded; result_failed when a document's file could not be written whole or read back (documents
// before it stay replaced).
[[nodiscard]] int32_t upload_documents(std::string_view path);

// As above, but the loaded document is first merged into the element: its settings win, what only
// the file has is added. Only the first 127 characters of `path` count. Records whose files are
// gone are dropped on the way.
[[nodiscard]] int32_t restore_documents(std::string_view path);

// The other way round: the element is merged into the loaded document, which is then saved after
// the command; an element without a document becomes one. Only the first 127 characters of `path`
// count.
//
// Return: as above; result_store_failed when settings could not be stored, each told by a line on
// standard error: all others are merged.
[[nodiscard]] int32_t sync_documents(std::string_view path);

// Writes every loaded document, in list order, into the file at `path`, between "<ROOT>" and
// "</ROOT>". The file is replaced in one step; what is no regular file (a pipe, /dev/null) is
// written as it stands, and fails where its reader takes nothing for 2 s.
//
// Return: result_ok; result_failed when the path is over 255 characters, and, after one line on
// standard error, when the file cannot be written: the old one is then still there.
[[nodiscard]] int32_t download_documents(std::string_view path);

}  // namespace veltrancord
