// What an operator sends: a change that is wanted, the same to be looked at only, or the answer to
// a trial. Text that has been signed (signature.h):
//
//     id=mtu-4711
//     device=yard-1
//     sequence=17
//     not-after=1798761600
//     trial=120
//     base=Network 5f2b0c...
//     remove=Network.Lan.Label
//
//     Network.Lan.Mtu=1400
//
// The head ends with a blank line; then come settings as "veltrancordctl apply" reads them, where
// blank lines and lines that begin with "#" do not count. "base" and "remove" may come several
// times.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrancord::bridge {

inline constexpr std::size_t max_message = std::size_t{64} * 1024;
inline constexpr std::size_t max_settings = 200;  // written and removed together
inline constexpr int max_trial_seconds = 60 * 60;

enum class message_kind : uint8_t { change, answer };

struct operator_message {
    std::string id;         // at most max_device_name characters of topics.h
    std::string device;     // who it is for
    uint64_t sequence = 0;  // at least 1; rises with each change
    int64_t not_after = 0;  // seconds since the epoch
    int trial_seconds = 0;  // of a change: 1 to max_trial_seconds
    bool keep = false;      // of an answer: else the change is given back
    // Documents and the content hash that each had for the operator.
    std::vector<std::pair<std::string, std::string>> bases;
    std::vector<std::pair<std::string, std::string>> set;  // each path once, over both lists
    std::vector<std::string> remove;
};

// Reads a message of that kind. What it does not know is refused, so that nothing is half done.
//
// Return: why it cannot be acted on; empty with the message, whose paths are plain (path_rules.h)
// and whose values hold no control characters and are not longer than the service takes.
[[nodiscard]] std::string parse_message(std::string_view text, message_kind kind,
                                        operator_message& message);

}  // namespace veltrancord::bridge
