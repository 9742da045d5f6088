#include "leaf/file_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "leaf/message.h"
#include "leaf/owned_fd.h"

namespace veltrancord {

namespace {

// Whoever parses the text appends a few bytes, for which it should not have to be copied.
constexpr std::size_t spare = 8;

// Messages of one file go to two streams; what is printed must not come out later than the rest.
int32_t fail(const char* message) {
    print_output("%s", message);
    return -1;
}

// Return: false when memory could not be had.
bool resize(std::string& buf, uint64_t size) {
    if (size > buf.max_size() - spare) {
        return false;
    }
    try {
        buf.clear();
        buf.reserve(static_cast<std::size_t>(size) + spare);
        buf.resize(static_cast<std::size_t>(size));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Reads up to `size` bytes. Return: the bytes read, with errno telling why they are fewer.
std::size_t read_up_to(int fd, char* text, std::size_t size) {
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

int32_t LoadFile2Buf(const char* path, std::string& buf) {
    // Opened for writing too, so that a file which could never be saved is not served either.
    const owned_fd fd(::open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
    if (fd.get() <= 0) {
        return fail("open file is failed\n");
    }
    const off_t end = ::lseek(fd.get(), 0, SEEK_END);
    if (end <= 0) {
        return fail("(ifilesize <= 0)");
    }
    static_cast<void>(::lseek(fd.get(), 0, SEEK_SET));
    const auto size = static_cast<uint64_t>(end);
    if (!resize(buf, size)) {
        return fail("*buf = (char*)malloc(ifilesize + 1);");
    }
    if (read_up_to(fd.get(), buf.data(), buf.size()) < buf.size()) {
        print_error("%s error %s\n", "LoadFile2Buf", std::strerror(errno));
    }
    return 0;
}

}  // namespace veltrancord
