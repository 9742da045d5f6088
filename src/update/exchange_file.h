// Exchange files: one XML file whose root element holds whole documents, each as a child element
// that bears the document's name. Server thread only.
#pragma once

#include <cstdint>

#include "xml/document.h"

namespace veltrancord {

// Loads an exchange file as the XML library itself would load it: only reading is needed, and the
// text ends at its first NUL. Anything but a regular file fails, and nothing is waited for.
//
// Return: false when the file cannot be read whole, is empty, does not parse or nests too deep.
[[nodiscard]] bool load_exchange_file(const char* path, XmlDocument& exchange);

// Writes every loaded document, in list order, into the file at `path` (created or truncated),
// between "<ROOT>" and "</ROOT>". The file is the client's, so it is written where it stands: a
// client may have it open already. What could not be written whole is emptied, with one line on
// standard error.
//
// Return: result_ok, or result_failed when the file cannot be created or written.
[[nodiscard]] int32_t write_exchange_file(const char* path);

}  // namespace veltrancord
