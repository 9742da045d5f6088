// Keeps a second instance of the service off the first one's files and socket: each would save its
// own state over what the other has acknowledged.
#pragma once

#include "leaf/owned_fd.h"
#include "service/options.h"

namespace veltrancord {

// An exclusive flock on a directory lasts as long as any process holds its descriptor: the
// supervisor and the worker do, the programs that they start do not.
struct instance_lock {
    owned_fd configuration;
    owned_fd event_log;  // empty where the log lies in the directory of the configuration
};

// Locks the directory of the configuration and that of the event log, and looks whether somebody
// answers at the socket. A directory that is not there or may not be read, and one on a file system
// without locks, is not locked. An instance that is just ending is waited for, 5 s in all.
//
// Return: false after one line on standard error that names what is in use, and the process that
// answers at the socket.
[[nodiscard]] bool keep_others_out(const service_options& options, const char* socket_path,
                                   instance_lock& lock);

}  // namespace veltrancord
