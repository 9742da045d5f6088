#include "leaf/owned_fd.h"

#include <cerrno>

namespace veltrancord {

void owned_fd::close_keeping_errno() const noexcept {
    const int saved_errno = errno;
    ::close(fd_);
    errno = saved_errno;
}

}  // namespace veltrancord
