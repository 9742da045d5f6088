// The files that upload, download, restore and syncxml name, for users who may use them only below
// some directories.
//
// What a file holds must not change between the look and the command. So a file that is read is
// copied to memory first, looked into there, and the command is given the copy; and a file is
// written only where nobody but root and the service's own user could exchange it meanwhile.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "leaf/owned_fd.h"

namespace veltrancord {

// A longer file is taken for one that is not below the directories.
inline constexpr std::size_t max_guarded_file = 16'777'216;  // bytes

// A file that was looked into.
struct guarded_file {
    owned_fd copy;
    std::string path;                    // of the copy, as long as that is open
    std::vector<std::string> documents;  // the names of its documents, in its order
    bool sets_programs = false;          // an element has a DispatchW attribute
};

// Copies the regular file at `path`, which must lie below one of the directories once all links on
// the way are followed, and must be no link itself and have one name only. No ".." is followed.
// Where there is none, or it does not parse, the copy is empty or has no documents: the command
// finds so, too.
//
// Return: false when it lies elsewhere, is too long, or no copy can be made. Memory that cannot be
// had is thrown as std::bad_alloc.
[[nodiscard]] bool copy_guarded_file(const std::string& path,
                                     std::span<const std::string> directories, guarded_file& file);

// Finds where a file at `path` is written: below one of the directories once all links on the way
// are followed, in one that nobody else can write to (or a sticky one of root's), and no other kind
// of file than a regular one.
//
// Return: the path without links, empty when it may not be written.
[[nodiscard]] std::string guarded_place(const std::string& path,
                                        std::span<const std::string> directories, uid_t own_user);

}  // namespace veltrancord
