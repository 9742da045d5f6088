#include "trusted_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"

namespace veltrancord::bridge {
namespace {

bool is_roots_alone(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && status.st_uid == 0 &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

std::string read_trusted_file(const std::string& path, std::string& text) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return path + ": not an absolute path";
    }
    const owned_fd directory(
        ::open(path.substr(0, slash + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const owned_fd file(::openat(directory.get(), path.c_str() + slash + 1,
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        return path + ": " + std::strerror(errno);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !is_roots_alone(file.get()) || !is_roots_alone(directory.get())) {
        return path + ": it and its directory must be root's, and nobody else's to write to";
    }
    text.assign(largest_trusted_file + 1, '\0');
    const ssize_t count = read_whole(file.get(), text.data(), text.size());
    if (count < 0) {
        return path + ": " + std::strerror(errno);
    }
    text.resize(static_cast<std::size_t>(count));
    return text.size() > largest_trusted_file ? path + ": over 64 KiB" : std::string();
}

}  // namespace veltrancord::bridge
