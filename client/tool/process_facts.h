// What /proc tells of other processes.
#pragma once

#include <string>
#include <vector>

namespace veltrancord::tool {

struct process_facts {
    int pid = 0;
    std::string name;
    int descriptors = -1;    // -1: may not be seen
    long resident_kib = -1;  // -1: may not be seen
    std::string descriptor_limit;
};

// The processes that hold a socket bound to `path`, the listening one or a connection of it.
std::vector<process_facts> holders_of_socket(const std::string& path);

// When the process was started, in ticks since the system's start, which tells it from one that has
// its number later. Empty: there is no such process.
std::string process_start(long process);

}  // namespace veltrancord::tool
