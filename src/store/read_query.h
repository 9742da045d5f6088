// Read queries: settings as "key=value" lines.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "handler/reply_text.h"
#include "store/subtree_listing.h"

namespace veltrancord {

// What readAndFilter hides.
// NOLINTNEXTLINE(readability-identifier-naming): a store name, in mixed case as they all are
inline constexpr std::array<std::string_view, 5> readFilterList = {
    "Account.User", "Account.Cloud", "Account.CGIPermitDenyFilter", "Account.LocalPassword",
    "Account.OperatorPassword"};

// Room that a reply needs above the reply capacity: the test that decides whether a line of a
// listing fits leaves the key out on purpose.
inline constexpr uint32_t reply_key_slack = 512;

// Opens `reply` for a reply of at most the current reply capacity (plus the slack above).
//
// Return: false when memory could not be had; the handler's message is the caller's.
[[nodiscard]] bool OpenReadReply(reply_text& reply);

// The same for the handler of that log name, with its message on standard error. A handler that
// gets false returns result_ok.
[[nodiscard]] bool OpenReadReply(reply_text& reply, const char* handler);

// The reply capacity that `reply` was opened with: one request keeps to one value, though the
// backup thread may change the capacity meanwhile.
[[nodiscard]] uint32_t ReadReplyCapacity(const reply_text& reply);

// Runs a read for `path`: one value, a subtree ("....*") or everything ("*"), appended to `out`,
// which OpenReadReply has opened. A level above 0 refuses what is not marked for it: a single
// value and the top of a subtree must carry a Level not below it.
//
// Return: the length appended (0: a subtree without any text), result_not_found,
// result_bad_argument or result_too_large; nothing is appended then.
[[nodiscard]] int32_t ReadXmlTree(std::string_view path, reply_text& out, int32_t level,
                                  HiddenPrefixes filter);

// Puts a file with what a read of `path` returns in place of `file`, in one step: whatever had that
// name, a link included, is replaced and not followed. Messages go to standard error.
//
// Return: the read's result, or result_too_large when nothing could be allocated or the file could
// not be written: what was there stays then.
int32_t DumpXmlToFile(const char* path, const char* file);

}  // namespace veltrancord
