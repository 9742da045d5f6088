// Whether a program is root's or the service's own, so that it may be run with the service's
// rights.
//
// Some of the programs that the service starts lie in /tmp, where everybody may put files. It runs
// one only if it and each step on the way to it, links and what they name included, belong to root
// or to the service's own user, and nobody else may write to them. A sticky directory of root's,
// such as /tmp, is the exception: there others can add entries, but not replace these. So nobody
// else can change what is run between the look and the start.
#pragma once

#include <sys/types.h>

#include <string>

namespace veltrancord {

// Return: why a service of the user `own_user` is not to run the program at `path`, naming the step
// that is to blame, such as
// "/tmp/trigger belongs to another user"; empty when it may be run, or is missing where nobody
// else could put it. Any thread.
[[nodiscard]] std::string why_not_trusted(const char* path, uid_t own_user);

// Prints "program not run: <path> : <why>" on standard error unless the program may be run.
//
// Return: whether it may. Any thread.
[[nodiscard]] bool is_trusted_program(const char* path);

}  // namespace veltrancord
