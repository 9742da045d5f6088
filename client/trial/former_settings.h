// What is at the places of a change before it is made, and the way back to it.
//
// All calls borrow the client for their time, make one exchange for each question, and may be made
// by any thread that has a client of its own. None prints anything.
#pragma once

#include <veltrancord/client.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltrancord::trial {

// One setting that is to be changed.
struct change {
    std::string path;                   // as a client writes it; each path once
    std::optional<std::string> before;  // what the caller has seen there; none: no text
    std::string after;
};

// What was at a place.
enum class former_kind : uint8_t {
    value,   // a text
    empty,   // an element without text, perhaps with attributes
    absent,  // no element
};

struct former_setting {
    std::string path;
    former_kind kind = former_kind::absent;
    std::string before;  // the text, where there was one
    std::string after;   // what the change puts there
};

struct former_settings {
    std::vector<former_setting> entries;  // in the order of the changes
    // The topmost element of each place that was not there: what was made below goes with it.
    std::vector<std::string> created;
};

enum class held : uint8_t { former, changed, other };

// Looks at the places of `changes`; the change itself is not made. `former` then holds what was
// found up to the place of a failure, whose path is in `failed`.
//
// Return: VELTRANCORD_OK; VELTRANCORD_NOT_FOUND for a place in a document that there is not; or
// what the exchange gave.
[[nodiscard]] int32_t look_at_former(veltrancord_client& client, const std::vector<change>& changes,
                                     former_settings& former, std::string& failed);

// Whether what was there is what the caller of the change has seen.
[[nodiscard]] bool is_expected(const former_setting& found, const change& wanted);

// Whether a request can bring a former text back: it holds no line feed and is not longer than the
// service takes.
[[nodiscard]] bool can_be_put_back(const former_setting& found);

// Tells what the place holds now. Return: VELTRANCORD_OK, or what the exchange gave.
[[nodiscard]] int32_t look_again(veltrancord_client& client, const former_setting& one, held& now);

// Writes the new texts with one request, in memory only or saved. Return: as veltrancord_write().
[[nodiscard]] int32_t write_changes(veltrancord_client& client, const former_settings& former,
                                    bool to_flash);

// The first place that does not hold its new text: where a write of all has failed. Empty where
// each of them holds it, or the service cannot be asked. The client's error stays as it was.
[[nodiscard]] std::string first_not_changed(veltrancord_client& client,
                                            const former_settings& former);

// Writes the former texts with one request, in memory only or saved, and then removes what was
// created, which saves its documents: never the other way round, lest new texts be saved with them.
// Where the service refuses the request as a whole, each text is written alone; what could not be
// put back is in `failed`, a path each.
//
// Return: VELTRANCORD_OK when the service has answered everything, else what the exchange gave: the
// same call may be made again.
[[nodiscard]] int32_t put_back(veltrancord_client& client, const former_settings& former,
                               bool to_flash, std::vector<std::string>& failed);

}  // namespace veltrancord::trial
