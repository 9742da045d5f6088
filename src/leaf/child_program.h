// Starting other programs: the one place that forks for them.
//
// A started program begins with default signal dispositions, an empty signal mask and no descriptor
// but 0, 1 and 2. After the fork of a process with threads only async-signal-safe calls are made,
// so the vectors below are built by the caller beforehand. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace veltrancord {

struct program_start {
    const char* path = nullptr;          // absolute path of the program
    char* const* arguments = nullptr;    // ends with a null pointer
    char* const* environment = nullptr;  // ends with a null pointer
    int standard_input = -1;             // becomes descriptor 0; -1: the service's own is inherited
    bool report_exec_failure = false;    // the child prints "execve: <reason>" before it ends
};

// Starts a program and does not wait for it; the worker's main loop reaps it. A child whose execve
// fails ends with status 1.
//
// Return: the child's process id, or -1 with errno set when it could not be forked (nothing is
// printed: the message is the caller's).
[[nodiscard]] pid_t start_program(const program_start& start);

// Runs `command` with "/bin/sh -c" and the service's own environment and waits for it, as system()
// does, but with the promises above. Whether or not the main loop reaps the shell first makes no
// difference to the caller.
//
// Return: 0 when the shell was started and has ended, whatever its status; -1 when it could not be
// started.
int32_t run_shell(const char* command);

// Closes all descriptors but 0, 1 and 2; where the kernel cannot do so in one call, those below
// `limit`. Async-signal-safe.
void close_private_descriptors(long limit);

// How far to go there: what the process may open, within reason.
[[nodiscard]] long closing_limit();

}  // namespace veltrancord
