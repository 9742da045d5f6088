// What the service has said to the system's log: out of journald, or out of a file of a syslog.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "context.h"

namespace veltrancord::tool {

// What is looked for.
enum class said_by : unsigned char {
    message,  // what the service prints
    record    // what it sends to the system's log
};

struct logged_line {
    std::string_view text;  // valid during the call that it is handed to
    bool whole =
        false;  // it begins as the service has said it; else a syslog's header may come first
};

// Calls `take` with each line, oldest first. Without a file these are journald's entries of the
// service's unit, which nobody else can add to. A file holds the lines of a syslog, or what
// `journalctl -o json` has printed, whoever has written them: "-" is standard input. Lines over
// 64 KiB are passed over.
//
// Return: exit_done, or another status after it was said what went wrong.
int for_each_logged_line(context& tool, const std::string& file, said_by kind,
                         const std::function<void(const logged_line&)>& take);

}  // namespace veltrancord::tool
