// What the completion scripts of the shells ask: "veltrancordctl complete -- WORD ...".
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace CLI {
class App;
}  // namespace CLI

namespace veltrancord::tool {

// Prints what could stand in place of the last of `words`, which follow the program's name on a
// command line: one on a line, with what it means behind a tab where that is known. It never says
// anything else, and gives up on a service that does not answer within 300 ms: whoever presses a
// key waits for it.
//
// Return: exit_done.
int run_completion(const CLI::App& app, context& tool, std::vector<std::string> words);

}  // namespace veltrancord::tool
