// The listening socket: made once by the supervisor, inherited by its workers.
#pragma once

namespace veltrancord {

// Creates the local socket at `path` and listens on it; a socket that an earlier run left there is
// replaced, and so is whatever else can be removed, an empty directory included. What cannot is
// named in a line. Failures are printed on standard error: "socket: ", "unable to set reuse: ",
// "unable to bind: " or "listen: " and the reason. A path that does not fit a socket address cannot
// be bound.
//
// Return: the descriptor, non-blocking and close-on-exec, owned by the caller; or -1.
[[nodiscard]] int create_local_server(const char* path);

enum class socket_release {
    for_all,    // shut down for every process that shares it
    this_copy,  // whoever shares it goes on accepting
};

// Prints "process release....", shuts the listening socket down unless only this copy is given up,
// and closes it here. Async-signal-safe; -1 is printed for, too, but nothing is closed.
void process_release(int fd, socket_release release);

}  // namespace veltrancord
