// The trail as it is read back: records of who changed what and who was refused, as guard/trail.h
// writes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "context.h"
#include "logged_lines.h"

namespace veltrancord::tool {

struct trail_path {
    std::string path;
    std::optional<std::string> before;  // where the trail has values and the setting is no secret
    std::optional<std::string> after;
};

struct trail_entry {
    int64_t time = 0;  // seconds since the epoch
    std::string kind;  // "change", "refused" or "would-be-refused"
    std::string user;  // a name or a number
    std::string uid;
    std::string process;
    std::string program;
    std::string command;
    std::vector<trail_path> paths;
    int64_t result = 0;
    int64_t more = 0;  // paths for which there was no room
    int64_t lost = 0;  // records that were lost before this one
};

// Whether a record of this path says something of what lies at the place: there, below or around
// it.
bool concerns(const std::string& path, const std::string& place);

// Takes the record out of a line. Return: none where there is no whole one.
std::optional<trail_entry> parse_trail_entry(const logged_line& line);

// Reads all records, oldest first, from journald or from `file` (logged_lines.h). Return:
// exit_done, or another status after it was said what went wrong.
int read_trail(context& tool, const std::string& file, std::vector<trail_entry>& entries);

}  // namespace veltrancord::tool
