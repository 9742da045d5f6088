// Moving whole documents between the loaded set and exchange files. Server thread only.
#pragma once

#include <cstdint>
#include <string_view>

namespace veltrancord {

// Each child element of the file's root element replaces the document of its name, or becomes a new
// document (update/document_creation.h). Neither marks anything for saving nor counts as a change
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
[[nodiscard]] int32_t sync_documents(std::string_view path);

// Writes every loaded document into the file at `path`.
//
// Return: result_ok, or result_failed when the path is over 255 characters or the file cannot be
// created or written.
[[nodiscard]] int32_t download_documents(std::string_view path);

}  // namespace veltrancord
