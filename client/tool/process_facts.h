// What /proc tells of other processes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace veltrancord::tool {

struct process_facts {
    int pid = 0;
    std::string name;
    int descriptors = -1;       // -1: may not be seen
    long descriptor_limit = 0;  // 0: none, or may not be seen
    int64_t resident_bytes = 0;
    double processor_seconds = 0;  // of all its threads
    double start_time = 0;         // seconds since the epoch
    bool has_lost_child = false;   // a process that it had started has ended, and it knows
};

// Return: false when there is no such process.
bool read_process_facts(int pid, process_facts& facts);

// The words of its command line. Empty: there is no such process, or the kernel's own.
std::vector<std::string> process_words(int pid);

// Where a link below /proc/PID leads to, such as "cwd". Empty: it may not be seen.
std::string process_link(int pid, const std::string& name);

// The process that this one has started and that still runs, one of them where they are several.
// Return: 0 when there is none.
int child_of(int pid);

// Who holds each of the sockets with these inodes, as far as the caller may see it: root sees all,
// others their own processes.
std::map<uint64_t, int> holders_of(const std::vector<uint64_t>& sockets);

// When the process was started, in ticks since the system's start, which tells it from one that has
// its number later. Empty: there is no such process.
std::string process_start(long process);

}  // namespace veltrancord::tool
