#include "leaf/file_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "leaf/message.h"
#include "leaf/owned_fd.h"

namespace veltrancord {

namespace {

// Messages of one file go to two streams; what is printed must not come out later than the rest.
int32_t Fail(const char* message) {
    print_output("%s", message);
    return -1;
}

// Reads up to `size` bytes. Return: the bytes read, with errno telling why they are fewer.
std::size_t ReadUpTo(int fd, char* text, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        errno = 0;
        const ssize_t count = ::read(fd, text + done, size - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            break;
        }
    }
    return done;
}

}  // namespace

void free_file_text::operator()(char* text) const {
    std::free(text);
}

int32_t LoadFile2Buf(const char* path, file_text& buf) {
    // Opened for writing too, so that a file which could never be saved is not served either.
    const owned_fd fd(::open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
    if (fd.get() <= 0) {
        return Fail("open file is failed\n");
    }
    const off_t end = ::lseek(fd.get(), 0, SEEK_END);
    if (end <= 0) {
        return Fail("(ifilesize <= 0)");
    }
    static_cast<void>(::lseek(fd.get(), 0, SEEK_SET));
    const auto wanted = static_cast<uint64_t>(end);
    const auto size = static_cast<std::size_t>(wanted);
    buf.reset(wanted < std::numeric_limits<std::size_t>::max()
                  ? static_cast<char*>(std::malloc(size + 1))
                  : nullptr);
    if (!buf) {
        return Fail("*buf = (char*)malloc(ifilesize + 1);");
    }
    const std::size_t done = ReadUpTo(fd.get(), buf.get(), size);
    if (done < size) {
        print_error("%s error %s\n", "LoadFile2Buf", std::strerror(errno));
    }
    std::memset(buf.get() + done, 0, size + 1 - done);
    return 0;
}

}  // namespace veltrancord
