#include "eventlog/log_capacity.h"

#include <sys/vfs.h>

namespace veltrancord {

int32_t read_log_file_system_size(const char* directory, int32_t& size) {
    struct statfs file_system {};
    const int result = ::statfs(directory, &file_system);
    if (result < 0) {
        return result;
    }
    // The low 32 bits of the factors are all that the low 32 bits of the product need.
    size = log_file_system_size(static_cast<uint32_t>(file_system.f_bsize),
                                static_cast<uint32_t>(file_system.f_blocks));
    return 0;
}

}  // namespace veltrancord
