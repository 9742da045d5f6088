// What "doctor" looks at: each a line with a state, usable whether or not the service is up.
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

enum class state { good, info, warning, bad };

struct diagnosis {
    std::string topic;  // a stable word, for programs
    state how = state::info;
    std::string text;
};

struct doctor_options {
    std::string directory = "/mnt/database/xml";
    std::string log_file = "/mnt/database/eventlog/log";
};

using diagnosis_list = std::vector<diagnosis>;

// Whether it answers, how fast, and who holds the socket.
bool diagnose_service(context& tool, diagnosis_list& list);

// Semaphores.
void diagnose_semaphores(diagnosis_list& list);

// Ages of the files, leftovers, room on the disk.
void diagnose_files(const doctor_options& options, diagnosis_list& list);

// Scripts of the device that the service starts.
void diagnose_scripts(const context& tool, diagnosis_list& list);

// Settings of the running service that are not in its files yet.
void diagnose_saves(context& tool, const doctor_options& options, diagnosis_list& list);

// The bounds that hold on this device.
void diagnose_limits(context& tool, const doctor_options& options, bool alive,
                     diagnosis_list& list);

}  // namespace veltrancord::tool
