// How the tool ends: the table of the manual.
#pragma once

#include <cstdint>

namespace veltrancord::tool {

enum exit_status : int {
    exit_done = 0,
    exit_not_found = 1,
    exit_usage = 2,
    exit_denied = 3,
    exit_empty = 4,        // the place exists, but holds no text
    exit_refused = 5,      // an argument that the service would cut, split or misread
    exit_too_large = 6,    // the reply is over the service's capacity or over what was accepted
    exit_failed = 7,       // a file cannot be read or written, or the store failed
    exit_unreachable = 8,  // nobody listens
    exit_timed_out = 9,
    exit_differs = 10,     // diff: there are differences; fsck, doctor: there are findings
    exit_cancelled = 11,   // a question was answered with no, or a change was not confirmed
    exit_broken = 12,      // the reply is none that can be
    exit_mismatch = 13,    // captcha check: wrong or expired
    exit_unknown = 14,     // a change was sent, and no reply says whether it was applied
    exit_not_saved = 15,   // a change was applied, but its file holds something else
    exit_no_log = 16,      // the event log keeps no events
    exit_other_key = 17,   // secrets are stored with another key, or it cannot be told
    exit_not_allowed = 18  // the description of the settings does not allow it
};

// Its name for programs: "NOT_FOUND", "USAGE" ...
const char* exit_status_name(int status);

// What it says, for the help of a command.
const char* exit_status_text(int status);

// The status for a result of the client library.
int exit_status_of(int32_t result);

}  // namespace veltrancord::tool
