#include "leaf/owned_fd.h"

#include <cerrno>

namespace veltrancord {

void owned_fd::reset(int fd) noexcept {
    if (fd_ >= 0) {
        const int saved_errno = errno;
        ::close(fd_);
        errno = saved_errno;
    }
    fd_ = fd;
}

}  // namespace veltrancord
