#include "leaf/message.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace veltrancord {

namespace {

// Room for a line that names two paths; a longer one is cut.
constexpr std::size_t longest_message = 9216;

// Nothing can be done about a place that takes no text.
void print(int fd, std::string_view text) noexcept {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(fd, text.data(), text.size());
    errno = error;
}

void print(int fd, const char* format, va_list arguments) {
    const int error = errno;
    std::array<char, longest_message> text;
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    const auto size = std::min(static_cast<std::size_t>(std::max(length, 0)), text.size() - 1);
    print(fd, {text.data(), size});
    errno = error;
}

}  // namespace

void print_error_text(std::string_view text) noexcept {
    print(STDERR_FILENO, text);
}

void print_error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(STDERR_FILENO, format, arguments);
    va_end(arguments);
}

void print_reason(const char* what) {
    print_error("%s: %s\n", what, std::strerror(errno));
}

void print_output(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print(STDOUT_FILENO, format, arguments);
    va_end(arguments);
}

}  // namespace veltrancord
