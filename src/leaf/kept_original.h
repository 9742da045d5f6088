// The original of a damaged file, kept beside it before the file is first replaced.
//
// A file that could be read only in part is served in part, and the save after the next change
// would destroy the rest for good. What is kept lies in the same directory under
// ".veltrancord-kept." and the file's name: one for each file, the newest. It is never loaded, and
// never swept as what a replacement left behind; to look at it and to remove it is the operator's
// business.
//
// Used by the thread that replaces the file.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace veltrancord {

// Keeps the file at `path` as it is: by a hard link, which needs no room, where the file system has
// them, else, and where `path` is a symbolic link, by a copy that only the service's user can read.
//
// Return: result_ok, also when there is no such file or it is empty; result_failed after one line
// on standard error: the file must not be replaced then. Nothing is left behind, and what was kept
// earlier stays.
[[nodiscard]] int32_t keep_original(const char* path);

// For whoever is about to write over the content of a file in place: where the kept original is a
// hard link to that file, which `status` describes, a copy takes its place.
//
// Return: false with errno set when that copy cannot be made.
[[nodiscard]] bool part_from_kept_original(int directory, const char* name,
                                           const struct stat& status);

// The path under which the original of the file at `path` is kept.
[[nodiscard]] std::string kept_original_of(std::string_view path);

// Whether a directory entry's name is that of a kept original.
[[nodiscard]] bool is_kept_original(std::string_view name);

}  // namespace veltrancord
