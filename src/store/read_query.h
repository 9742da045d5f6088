// Read queries: settings as "key=value" lines.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "leaf/reply_text.h"

namespace veltrancord {

// Key prefixes that a filtered read hides; empty: nothing is filtered.
using hidden_prefixes = std::span<const std::string_view>;

// Room that a reply needs above the reply capacity: the test that decides whether a line of a
// listing fits leaves the key out on purpose.
inline constexpr uint32_t reply_key_slack = 512;

// Opens `reply` for a reply of at most the current reply capacity (plus the slack above).
//
// Return: false when memory could not be had; the handler's message is the caller's.
[[nodiscard]] bool open_read_reply(reply_text& reply);

// Runs a read for `path`: one value, a subtree ("....*") or everything ("*"), appended to `out`,
// which the caller has opened and which is empty.
//
// Return: the length appended (0: a subtree without any text), result_not_found,
// result_bad_argument or result_too_large.
[[nodiscard]] int32_t ReadXmlTree(std::string_view path, reply_text& out, int32_t level,
                                  hidden_prefixes filter);

// Writes what a read of `path` returns into `file` (created or truncated).
//
// Return: the read's result, or result_too_large when nothing could be allocated or the file could
// not be opened. Messages are printed as for the read.
[[nodiscard]] int32_t DumpXmlToFile(const char* path, const char* file);

}  // namespace veltrancord
