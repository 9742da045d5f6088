#include "service/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace veltrancord {

void ensure_standard_descriptors() {
    // A new descriptor takes the lowest number that is free.
    int fd = -1;
    do {
        fd = ::open("/dev/null", O_RDWR);  // these three are meant to be inherited
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}

}  // namespace veltrancord
