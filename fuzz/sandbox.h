// A file system of its own for the targets that run commands.
//
// A command may name any file to be written, and any program to be started; what a fuzzer makes up
// names them all. So while an input is served the process has an empty folder in memory for its
// root: there the service's fixed paths (/tmp/Permit.db, /mnt/database/xml ...) are what they are,
// saving and replacing files is real down to the system calls, and nothing outside can be reached.
//
// One thing is not real: no child is made, vfork fails with EAGAIN every time (sandbox.cpp takes
// the call's place when the target is linked). The programs would have to be looked for in the
// empty root, and the service's answer to a failing fork is worth running as well. Starting
// programs is tested end to end.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace veltrancord::fuzz {

// Inside from its making to its end. One at a time, and with no other thread at work.
class sandbox {
  public:
    // Enters the root, emptied but for /tmp, /mnt/database/xml and /mnt/database/eventlog.
    sandbox();
    sandbox(const sandbox&) = delete;
    sandbox& operator=(const sandbox&) = delete;
    ~sandbox();
};

inline constexpr const char* configuration = "/mnt/database/xml";
inline constexpr const char* event_log_path = "/mnt/database/eventlog/log";

// Makes a file; inside only.
void put_file(const std::string& path, std::string_view content);

// Return: whole content, empty when there is none.
[[nodiscard]] std::string get_file(const std::string& path);

// Return: what `call` has printed on standard error, where it does not go. A sanitizer's report
// goes there all the same.
[[nodiscard]] std::string errors_printed_by(const std::function<void()>& call);

// How many children the service would have made since the last call.
[[nodiscard]] int refused_children();

}  // namespace veltrancord::fuzz
