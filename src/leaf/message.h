// The one place that prints: what the service has to say goes to standard error, and a few texts
// that the device's scripts have always looked for there to standard output.
//
// Nothing here waits: a message for which there is no room is left out, and their number is told in
// a line before the next one that is printed. A message of over 9215 bytes is cut.
//
// Any thread. errno is left as it was.
#pragma once

#include <string_view>

namespace veltrancord {

// Opens what standard output and standard error lead to a second time where a write could have to
// wait, so that it never does. To be called once, before anything is printed or forked; without it
// another process that prints at the same moment may still make a message wait.
void prepare_messages();

// Prints a text, formatted as by printf, on standard error, in one call: other processes print to
// the same place meanwhile.
[[gnu::format(printf, 1, 2)]] void print_error(const char* format, ...);

// Prints a text as it stands on standard error, in one call. Async-signal-safe, and may be called
// between vfork and execve.
void print_error_text(std::string_view text) noexcept;

// As perror: the text, ": ", the reason that errno gives and a line feed, on standard error.
void print_reason(const char* what);

// Prints a text, formatted as by printf, on standard output.
[[gnu::format(printf, 1, 2)]] void print_output(const char* format, ...);

}  // namespace veltrancord
