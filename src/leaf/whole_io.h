// Reading, writing and flushing files whole, whatever interrupts or shortens a system call.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace veltrancord {

// A call that is interrupted more often than this in a row has failed.
inline constexpr int max_interruptions = 100;

// Makes a system call again as long as it is interrupted, within reason.
//
// Return: what the last call returned, with its errno.
template <typename Call>
auto uninterrupted(Call call) {
    auto outcome = call();
    for (int i = 0; i < max_interruptions && outcome < 0 && errno == EINTR; ++i) {
        outcome = call();
    }
    return outcome;
}

// Writes all of `content` at the file position.
//
// Return: false with errno set; how much was written then is not known.
[[nodiscard]] bool write_whole(int fd, std::string_view content);

// Reads up to `size` bytes from the file position, fewer only at the end of the file.
//
// Return: the number of bytes, or -1 with errno set.
[[nodiscard]] ssize_t read_whole(int fd, char* bytes, std::size_t size);

// Waits until what was written is on the device. A file system without such a flush has nothing to
// flush.
//
// Return: false with errno set.
[[nodiscard]] bool flush_whole(int fd);

// The same for the names in a directory: what was removed from it stays removed.
//
// Return: false with errno set.
[[nodiscard]] bool flush_directory(const char* path);

}  // namespace veltrancord
