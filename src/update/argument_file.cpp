#include "update/argument_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "leaf/message.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

owned_fd make_unnamed_file() {
    char name[] = "/tmp/xmltemp-XXXXXX";
    owned_fd file(::mkostemp(name, O_CLOEXEC));
    if (!file) {
        print_reason("mkstemp");
        return {};
    }
    if (::unlink(name) != 0) {
        const int reason = errno;
        file.reset();
        errno = reason;
        print_reason("unlink temp file");
    }
    return file;
}

// Return: false after a message when not all of `content` could be written.
bool write_body(const owned_fd& file, std::string_view content) {
    if (file && !write_whole(file.get(), content)) {
        print_reason("write body");
        return false;
    }
    return true;
}

owned_fd copy_argument_file(const owned_fd& file) {
    owned_fd copy = make_unnamed_file();
    char block[4096];
    off_t position = 0;
    while (copy) {
        const ssize_t count =
            uninterrupted([&] { return ::pread(file.get(), block, sizeof block, position); });
        if (count <= 0 || !write_body(copy, {block, static_cast<std::size_t>(count)})) {
            break;
        }
        position += count;
    }
    return copy && ::lseek(copy.get(), 0, SEEK_SET) == 0 ? std::move(copy) : owned_fd();
}

}  // namespace

owned_fd make_argument_file(std::string_view content) {
    owned_fd file = make_unnamed_file();
    static_cast<void>(write_body(file, content));
    return file;
}

owned_fd open_argument_file(const owned_fd& file) {
    if (!file) {
        return {};
    }
    char name[32];
    std::snprintf(name, sizeof name, "/proc/self/fd/%d", file.get());
    owned_fd opened(::open(name, O_RDONLY | O_CLOEXEC));
    return opened ? std::move(opened) : copy_argument_file(file);
}

}  // namespace veltrancord
