#include "schema/usual_directory.h"

#include <cstdlib>

namespace veltrancord::schema {

std::string usual_directory() {
    const char* const named = secure_getenv("VELTRANCORD_SCHEMA");
    return named != nullptr && *named != '\0' ? named : VELTRANCORD_SCHEMA_DIRECTORY;
}

}  // namespace veltrancord::schema
