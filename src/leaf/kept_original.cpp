#include "leaf/kept_original.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "leaf/message.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

constexpr std::string_view kept_prefix = ".veltrancord-kept.";
// Made first, and renamed when it is whole; a leftover is swept as a replacement's is.
constexpr std::string_view aside_prefix = ".veltrancord-new.kept.";

std::string prefixed(std::string_view prefix, std::string_view name) {
    return std::string(prefix).append(name.substr(0, NAME_MAX - prefix.size()));
}

// Return: false with errno set.
bool copy_into(int from, int to) {
    char block[8192];
    for (;;) {
        const ssize_t count = uninterrupted([&] { return ::read(from, block, sizeof block); });
        if (count <= 0) {
            return count == 0 && flush_whole(to);
        }
        if (!write_whole(to, {block, static_cast<std::size_t>(count)})) {
            return false;
        }
    }
}

// Return: false with errno set; a part may be there then.
bool copy(int directory, const char* name, const char* aside) {
    const owned_fd from(::openat(directory, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    owned_fd to;
    if (from) {
        to.reset(::openat(directory, aside, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                          S_IRUSR | S_IWUSR));
    }
    return to && copy_into(from.get(), to.get());
}

// Puts a link to the file, or a copy, under its kept name.
//
// Return: false with errno set; nothing has changed then.
bool keep(int directory, const char* name, bool may_link) {
    const std::string aside = prefixed(aside_prefix, name);
    ::unlinkat(directory, aside.c_str(), 0);
    const bool made = (may_link && ::linkat(directory, name, directory, aside.c_str(), 0) == 0) ||
                      copy(directory, name, aside.c_str());
    const bool kept = made && ::renameat(directory, aside.c_str(), directory,
                                         prefixed(kept_prefix, name).c_str()) == 0;
    const int reason = errno;
    // Also where all went well: a link to the file that is kept already is not renamed.
    ::unlinkat(directory, aside.c_str(), 0);
    errno = reason;
    return kept && flush_whole(directory);
}

}  // namespace

int32_t keep_original(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    const char* const name = slash != nullptr ? slash + 1 : path;
    const std::string place = slash != nullptr ? std::string(path, name) : ".";
    const owned_fd directory(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    const bool there =
        directory && ::fstatat(directory.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (there && (status.st_size == 0 || S_ISDIR(status.st_mode))) {
        return result_ok;
    }
    const bool kept = there && keep(directory.get(), name, !S_ISLNK(status.st_mode));
    if (kept || errno == ENOENT) {
        return result_ok;
    }
    print_error("keep_original %s error : %s\n", path, std::strerror(errno));
    return result_failed;
}

bool part_from_kept_original(int directory, const char* name, const struct stat& status) {
    struct stat kept {};
    if (status.st_nlink < 2 || ::fstatat(directory, prefixed(kept_prefix, name).c_str(), &kept,
                                         AT_SYMLINK_NOFOLLOW) != 0) {
        return true;
    }
    return kept.st_ino != status.st_ino || kept.st_dev != status.st_dev ||
           keep(directory, name, false);
}

std::string kept_original_of(std::string_view path) {
    const std::size_t name = path.rfind('/') + 1;  // npos + 1 is 0
    return std::string(path.substr(0, name)) + prefixed(kept_prefix, path.substr(name));
}

bool is_kept_original(std::string_view name) {
    return name.size() > kept_prefix.size() && name.starts_with(kept_prefix);
}

}  // namespace veltrancord
