// The documents' settings as they are to be told: which have to be told anew, and when.
//
// What is told is what is settled: nothing while a trial is under way, and again when it is over.
// Used by one thread.
#pragma once

#include <veltrancord/client.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "configuration.h"

namespace veltrancord::bridge {

struct document_report {
    std::string document;
    std::string payload;  // "hash=...", a blank line, and "path=value" lines
};

class reporter {
  public:
    // Borrows both for its life. Everything is to be told at first.
    reporter(veltrancord_client& client, const configuration& settings);

    // The document's file was replaced, or removed.
    void mark(std::string_view document);

    // Everything may be different; with `anew` it is told again even where it is not.
    void mark_all(bool anew);

    // Milliseconds until next() has something to do; nothing where all has been told.
    [[nodiscard]] std::optional<int64_t> due_in(int64_t now) const;

    // Reads the next document whose time has come. What reads as it was told is not told again;
    // what cannot be read is tried again after the interval. `now`: milliseconds of a clock that
    // nobody sets. Return: the report, or nothing for now.
    [[nodiscard]] std::optional<document_report> next(int64_t now);

  private:
    struct told_document {
        std::string name;
        bool due = true;
        int64_t not_before = 0;
        std::string hash;  // as told; empty: not told yet
    };

    veltrancord_client& client_;
    const configuration& settings_;
    std::vector<told_document> documents_;
};

}  // namespace veltrancord::bridge
