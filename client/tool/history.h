// The history of changes: a file of lines of JSON, one for each change, oldest first.
//
// It lies in the shared state folder, so every line may be read and written by all who may change
// settings there. Secrets are never in it. What is kept is bounded: when a line would make the file
// longer than history_bound, the older half of it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "leaf/owned_fd.h"

namespace veltrancord::tool {

inline constexpr std::size_t history_bound = std::size_t{1} << 20U;  // bytes of the file
inline constexpr std::size_t entry_bound = std::size_t{48} << 10U;   // of an entry's texts

// What one setting, or with `attribute` the attribute that the last component names, was and is.
struct recorded_difference {
    std::string path;
    bool attribute = false;
    std::optional<std::string> before;  // none: there was no such element or attribute
    std::optional<std::string> after;
    bool lost = false;  // `before` is not what was there: a secret, or what no write can bring back
    std::string made;   // the uppermost element that the change has made, or empty
};

struct history_entry {
    int64_t number = 0;   // from 1; given when it is appended
    int64_t time = 0;     // seconds since the epoch
    std::string user;     // who, empty where that is not known
    std::string command;  // the command line; empty: not by the tool
    bool memory = false;  // in memory only
    int64_t undoes = 0;   // the number of the change that this one undoes, or 0
    bool forced = false;  // with --force, against the description of the settings
    bool cut = false;     // there were more differences than are kept
    std::vector<recorded_difference> differences;
};

// Reads all entries, oldest first; lines that are none are passed over, and a file that is not
// there holds none. Return: false with errno set.
bool read_history(std::vector<history_entry>& entries);

// Gives the entry its number and appends it, having dropped differences beyond entry_bound. Return:
// false with errno set.
bool append_to_history(history_entry& entry);

// Held in shared mode by whoever changes something until it is in the history, and for a moment in
// exclusive mode by who looks for changes that are not: he waits for those. Empty where there is no
// folder for it.
enum class change_lock_mode { shared, exclusive };
owned_fd lock_changes(change_lock_mode mode);

}  // namespace veltrancord::tool
