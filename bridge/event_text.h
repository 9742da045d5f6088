// An event as it is told.
#pragma once

#include <string>

#include "event_queue.h"

namespace veltrancord::bridge {

// Lines: "number", "lost" and the fields of the log's entry: "type", "time" (the device's local
// time, "2024-01-31T23:05:09"), "first", "text" and "second"; or "entry", as it stands in the file,
// where that has other fields than ten.
[[nodiscard]] std::string event_text(const queued_event& event);

}  // namespace veltrancord::bridge
