#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "leaf/child_program.h"
#include "service/processes.h"

namespace veltrancord {

namespace {

void open_standard_descriptors() {
    // A new descriptor takes the lowest number that is free.
    int fd = -1;
    do {
        fd = ::open("/dev/null", O_RDWR);  // these three are meant to be inherited
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}

}  // namespace

void settle_inheritance() {
    open_standard_descriptors();
    close_private_descriptors(closing_limit());
    // Who ignores SIGCHLD never learns which child has ended; who blocks SIGTERM cannot be told to.
    struct sigaction standard = {};  // all zero: the default disposition
    ::sigaction(SIGCHLD, &standard, nullptr);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    const rlimit no_core = {0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);
}

}  // namespace veltrancord
