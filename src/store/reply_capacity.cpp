#include "store/reply_capacity.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "leaf/file_replacer.h"
#include "leaf/kept_original.h"
#include "leaf/message.h"

namespace veltrancord {

namespace {

// Written by the main thread at start and by the backup thread, read by the server thread.
std::atomic<uint32_t> g_readBufSize{min_reply_capacity};

}  // namespace

void scan_reply_capacity(const char* directory) {
    DIR* const entries = ::opendir(directory);
    if (entries == nullptr) {
        print_reason("prsize");
        return;
    }
    uint64_t sum = 0;
    while (const dirent* const entry = ::readdir(entries)) {
        struct stat status = {};
        if (is_replacement_leftover(entry->d_name) || is_kept_original(entry->d_name)) {
            continue;
        }
        if (::fstatat(::dirfd(entries), entry->d_name, &status, 0) != 0) {
            print_error("Couldn't stat %s, error : %s\n", entry->d_name, std::strerror(errno));
            continue;
        }
        // Sizes that a file system makes up must not wrap the sum.
        sum = std::min<uint64_t>(
            sum + std::min<uint64_t>(static_cast<uint64_t>(status.st_size), max_reply_capacity),
            max_reply_capacity);
    }
    ::closedir(entries);
    g_readBufSize.store(std::max(static_cast<uint32_t>(sum), min_reply_capacity));
}

uint32_t GetReadBufSize() {
    return g_readBufSize.load();
}

}  // namespace veltrancord
