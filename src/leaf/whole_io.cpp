#include "leaf/whole_io.h"

#include <fcntl.h>
#include <unistd.h>

#include "leaf/owned_fd.h"

namespace veltrancord {

bool write_whole(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written =
            uninterrupted([&] { return ::write(fd, content.data(), content.size()); });
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

ssize_t read_whole(int fd, char* bytes, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = uninterrupted([&] { return ::read(fd, bytes + done, size - done); });
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

bool flush_whole(int fd) {
    return uninterrupted([&] { return ::fsync(fd); }) == 0 || errno == EINVAL || errno == ENOSYS ||
           errno == EOPNOTSUPP;
}

bool flush_directory(const char* path) {
    const owned_fd directory(
        uninterrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return directory && flush_whole(directory.get());
}

}  // namespace veltrancord
