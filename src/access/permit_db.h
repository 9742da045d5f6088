// The permissions for other programs: a file with the configuration's branch, and a script that is
// told when it has changed.
#pragma once

#include <cstdint>

namespace veltrancord {

inline constexpr const char* permit_db_path = "/tmp/Permit.db";
inline constexpr const char* permit_db_content = "Account.Permission.*";

// Writes what a read of `path` returns into `file`. A read that fails or finds nothing is printed
// and leaves the file as it was.
//
// Return: the number of bytes, or the read's result, or result_too_large when the file cannot be
// opened or memory cannot be had.
int32_t save_xml_to_file(const char* path, const char* file);

// Writes the file of permissions and starts the script, when there is one, without waiting for it.
void save_permit_db();

}  // namespace veltrancord
