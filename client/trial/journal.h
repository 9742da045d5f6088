// The journal of a trial: all that is needed to give it back, or to finish keeping it, without the
// process that has begun it. A text file of lines; values hold no line feeds.
//
//     veltrancord-trial 1
//     boot 5f0c...            the run of the kernel that the deadline counts in
//     deadline 123456         milliseconds of the kernel's clock that goes on in suspension
//     file Network 8:1:77...  a document's file as it was (see document_file.h)
//     value Network.Lan.Mtu=1500       what was there: a text,
//     empty Network.Lan.Label          an element without one,
//     absent Network.Lan.New           or nothing;
//     becomes Network.Lan.Mtu=1400     behind each, what was written
//     created Network.Lan.New
//     end
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "trial/former_settings.h"

namespace veltrancord::trial {

struct journal {
    std::string boot;
    int64_t deadline = 0;
    std::map<std::string, std::string> files;  // document, and its file as it was
    former_settings former;
};

[[nodiscard]] std::string journal_text(const journal& content);

// Return: false for what is not a whole journal.
[[nodiscard]] bool parse_journal(std::string_view text, journal& content);

// This run of the kernel; empty where it does not tell.
[[nodiscard]] std::string boot_name();

// Milliseconds since the kernel's start, suspension included: no clock that somebody could set.
[[nodiscard]] int64_t boot_milliseconds();

}  // namespace veltrancord::trial
