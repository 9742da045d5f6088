// Which changes were acted on: so that each is acted on once, whatever comes again.
//
// A broker hands a retained message out with every connection, after each of its restarts too, and
// one that is not honest hands out old ones. So the highest sequence number that was acted on
// stands on flash before anything is written, once for each change, whatever becomes of it. How it
// ended is kept in memory only (a file in /run), for a bridge that is started anew; after a restart
// of the device it is found by looking (change_desk.h).
//
// Used by one thread.
#pragma once

#include <cstdint>
#include <string>

namespace veltrancord::bridge {

enum class change_state : uint8_t {
    none,   // there was no change yet
    noted,  // acted on, and how it ended is not known
    trial,
    applied,
    rolled_back,
    refused,
    conflict,
    expired
};

// The word of a result's line "state=".
[[nodiscard]] const char* word_of(change_state state);

struct noted_change {
    uint64_t sequence = 0;
    std::string id;
    change_state state = change_state::none;
    uint64_t trial = 0;  // the trial's journal, while there is one
    std::string reason;  // without line feeds; may be empty
};

class change_journal {
  public:
    // `flash` and `memory` are the two files. Their directories must be there.
    change_journal(std::string flash, std::string memory);

    // Reads both. Return: false where the file on flash is there and not as it should be; then
    // nothing may be acted on.
    [[nodiscard]] bool load();

    // The last change that was acted on.
    [[nodiscard]] const noted_change& last() const { return last_; }

    // Notes that a change is acted on, on flash, before it is. Return: false after one line on
    // standard error: it must not be.
    [[nodiscard]] bool note(uint64_t sequence, const std::string& id);

    // Notes how far it is, in memory. A failure costs one line on standard error, and what a bridge
    // that is started anew then has to find by looking.
    void set_state(change_state state, const std::string& reason, uint64_t trial = 0);

  private:
    std::string flash_;
    std::string memory_;
    noted_change last_;
};

}  // namespace veltrancord::bridge
