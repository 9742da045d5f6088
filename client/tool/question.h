// Asking before something is destroyed, and reading what must not stand on a command line.
#pragma once

#include <string>

#include "context.h"

namespace veltrancord::tool {

// Whether `what` may be done: yes with --yes, else the answer of whoever sits at the terminal;
// where there is none, no. Says so. Return: exit_done, exit_cancelled or exit_usage.
int may_destroy(context& tool, const std::string& what);

// Asks a question that is answered with yes or no, no by default. False where there is no terminal.
bool asked_yes(const std::string& question);

// With --backup FILE: has the service write all its documents there. Return: the exit status.
int back_up_first(context& tool);

// Has the service write all its documents into a file, which is for nobody else to read unless it
// is there already. Says what went wrong. Return: the exit status.
int download_to(context& tool, const std::string& file);

// Reads all of a file, of standard input for "-". Return: false with errno set.
bool read_input(const std::string& name, std::string& text);

// Reads one line from the terminal without showing it when standard input is one, else all of the
// input; a line feed at the end is cut off. Return: false with errno set.
bool read_secret(const std::string& prompt, const std::string& file, std::string& secret);

}  // namespace veltrancord::tool
