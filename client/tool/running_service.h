// Who runs the service, and with which directory and event log: what the system tells of it.
#pragma once

#include <cstdint>
#include <string>

#include "context.h"

namespace veltrancord::tool {

struct running_service {
    int supervisor = 0;  // 0: nobody listens, or in a place from where its processes are not seen
    int worker = 0;      // 0: as above, or none runs at the moment
    std::string program;
    std::string directory;
    std::string log_file;
    // Whether directory and log file are the ones that it was started with, and lead to the same
    // files from here. Else they are the defaults.
    bool paths_known = false;
};

// Asks the system who listens at the socket, and reads the options from that process's command
// line, which everybody may. Takes one request, which changes nothing there, and waits at most a
// second for its reply.
running_service find_service(const context& tool);

}  // namespace veltrancord::tool
