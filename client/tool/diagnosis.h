// What "doctor" looks at: each a line with a state, usable whether or not the service is up.
#pragma once

#include <string>
#include <vector>

#include "context.h"
#include "service_numbers.h"

namespace veltrancord::tool {

enum class state { good, info, warning, bad };

struct diagnosis {
    std::string topic;  // a stable word, for programs
    state how = state::info;
    std::string text;
};

using diagnosis_list = std::vector<diagnosis>;

// The socket, whether it answers, its processes, and who is connected.
void diagnose_service(const context& tool, const examination& found, diagnosis_list& list);

// The access file, as the running service reads it.
void diagnose_access(const examination& found, diagnosis_list& list);

// Semaphores.
void diagnose_semaphores(diagnosis_list& list);

// Who may get at the files, their ages, leftovers, room on the disk.
void diagnose_files(const examined_places& places, diagnosis_list& list);

// What the check of files finds, and what is not as it is described.
void diagnose_fsck(context& tool, const examined_places& places, diagnosis_list& list);

// Scripts of the device that the service starts.
void diagnose_scripts(const context& tool, diagnosis_list& list);

// Settings of the running service that are not in its files yet.
void diagnose_saves(const examination& found, diagnosis_list& list);

// Whether the running service stores secrets as this tool does.
void diagnose_key(context& tool, diagnosis_list& list);

// The bounds that hold on this device.
void diagnose_limits(context& tool, const examination& found, diagnosis_list& list);

}  // namespace veltrancord::tool
