#include "quiet_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace veltrancord::tool {

quiet_output::quiet_output()
    : output_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      error_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    const owned_fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere && output_ && error_) {
        (void)dup2(nowhere.get(), STDOUT_FILENO);
        (void)dup2(nowhere.get(), STDERR_FILENO);
    }
}

quiet_output::~quiet_output() {
    std::fflush(stdout);
    if (output_ && error_) {
        (void)dup2(output_.get(), STDOUT_FILENO);
        (void)dup2(error_.get(), STDERR_FILENO);
    }
}

}  // namespace veltrancord::tool
