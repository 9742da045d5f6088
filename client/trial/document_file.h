// Whether a document's file was replaced, seen from outside the service.
#pragma once

#include <string>

namespace veltrancord::trial {

// A text without blanks that changes with each save of the file; empty where the file cannot be
// seen.
[[nodiscard]] std::string file_identity(const std::string& file);

}  // namespace veltrancord::trial
