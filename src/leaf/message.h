// The one place that prints: what the service has to say goes to standard error, and a few texts
// that the device's scripts have always looked for there to standard output.
//
// Any thread. errno is left as it was.
#pragma once

#include <string_view>

namespace veltrancord {

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
