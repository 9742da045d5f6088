// Descriptors 0, 1 and 2.
#pragma once

namespace veltrancord {

// Opens /dev/null on those of the three that are closed, so that no file or socket of the service
// can come to stand where messages are printed. To be called before anything else is opened.
void ensure_standard_descriptors();

}  // namespace veltrancord
