// Where the descriptions are looked for where nobody has said it.
#pragma once

#include <string>

namespace veltrancord::schema {

// What VELTRANCORD_SCHEMA in the environment names, but for a program that runs with more rights
// than who started it; else the directory of the build.
[[nodiscard]] std::string usual_directory();

}  // namespace veltrancord::schema
