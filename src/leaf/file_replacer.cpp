// How a file gets its new content.
//
// The device loses power at any moment, and its settings must not. So a file is never opened for
// writing: the new content goes into a temporary file in the same directory, is flushed to the
// device, and takes the old file's name by rename(), which the file system does wholly or not at
// all. The flush comes before the rename, because a file system may well write the new name to the
// device before the data that it names: the file would then be empty after a power cut, which is
// how settings are usually lost. The directory is flushed last, so that a client that holds its
// reply can pull the plug.
//
// What was considered and rejected:
// - Writing in place, even with a copy kept elsewhere. Every reader would have to know about the
//   copy and to judge which of the two is whole; a rename leaves nothing to judge.
// - An unnamed file (O_TMPFILE) given its name by linkat(). It would leave nothing behind after a
//   cut, but linkat() refuses a name that exists, so that a second, named step would be needed.
// - Temporary files in one directory of their own. It need not be on the same file system (a
// document
//   may be a link to a file elsewhere), and then there is no rename.
// - A temporary name with a random part. Each cut would leave another file, also in places that
// nobody
//   sweeps, such as the directory that a link points to. With one name for each file there is at
//   most one leftover, and the next save of that file removes it.
// - Keeping the directories open between saves. It would spare two system calls, and keep writing
//   into a directory that has meanwhile been replaced or mounted over.
//
// The temporary file's name begins with "." and holds further dots. No dotted path leads to such a
// name, and no XML element can have it, so skipping it hides nobody's document.
//
// Where no replacement can be made but the file itself is writable (a directory without write
// permission, a file that is a mount point, an owner that cannot be kept), the file is written in
// place: the old content is held in memory and put back if a write fails. A power cut can tear such
// a file; there is no way in that place to prevent it. What is no regular file, such as /dev/null
// or a FIFO, is written as it stands, and what it has taken is out. Conditions that more room or
// better luck would mend (no space, quota, an input/output error, no descriptors) are no reason to
// write in place: the old file stays, and the caller tries again later.
//
// Room is reserved before the first byte is written, aside and in place: a flash that is full is
// then not worn out by attempts that fail half way.
//
// System calls of one replacement: open the directory, stat the file, create the temporary file and
// stat it, reserve room, write, fsync, close, rename, fsync the directory, close it. The two stats
// keep mode and owner; a change of either costs one call more.
#include "leaf/file_replacer.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "leaf/kept_original.h"
#include "leaf/message.h"
#include "leaf/path_walk.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

constexpr std::string_view temporary_prefix = ".veltrancord-new.";
constexpr mode_t permission_bits = 07777;
// All clients wait while a FIFO's reader takes its next part.
constexpr int reader_wait = 2'000;  // milliseconds

// Whether an error in making a temporary file or in renaming it means that this place allows no
// replacement at all, while the file itself may be writable.
bool forbids_replacement(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
        case EROFS:
        case EBUSY:
        case EXDEV:
        case EEXIST:
        case ENAMETOOLONG:
            return true;
        default:
            return false;
    }
}

// Return: whether there was such a regular file, which is now gone.
bool remove_leftover(int directory, const char* name) {
    struct stat status {};
    return ::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode) && ::unlinkat(directory, name, 0) == 0;
}

// The content of a file that is about to be written in place.
class kept_content {
  public:
    // Return: false with errno set when it could not be read.
    [[nodiscard]] bool read(int fd, std::size_t size) {
        bytes_.reset(static_cast<char*>(std::malloc(size + 1)));
        const ssize_t count = bytes_ != nullptr ? read_whole(fd, bytes_.get(), size) : -1;
        size_ = count > 0 ? static_cast<std::size_t>(count) : 0;
        return count >= 0;
    }

    [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }

  private:
    struct free_bytes {
        void operator()(char* bytes) const { std::free(bytes); }
    };
    std::unique_ptr<char, free_bytes> bytes_;
    std::size_t size_ = 0;
};

// Makes sure that a file of `size` bytes can grow to `length`, where the file system can tell. The
// kernel's call and not posix_fallocate, which writes the room byte by byte where the file system
// cannot reserve it.
//
// Return: false with errno set.
bool reserve(int fd, off_t size, std::size_t length) {
    const auto wanted = static_cast<off_t>(length);
    return wanted <= size ||
           uninterrupted([&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, wanted); }) == 0 ||
           (errno != ENOSPC && errno != EDQUOT && errno != EIO && errno != EFBIG);
}

// As the kernel's protected_symlinks, which not every kernel has switched on: in a directory where
// everybody may put files, a link of somebody else's would give away what he chooses.
bool may_follow(const struct stat& directory, const struct stat& entry) {
    return !S_ISLNK(entry.st_mode) || (directory.st_mode & S_ISVTX) == 0 ||
           (directory.st_mode & (S_IWGRP | S_IWOTH)) == 0 || entry.st_uid == directory.st_uid ||
           entry.st_uid == ::geteuid();
}

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Whether the kernel has openat2. Any thread that finds out writes it.
std::atomic<bool> g_linklessOpen{true};

// Return: the directory, or nothing where a link is on the way to it or another error occurred.
owned_fd open_linkless_directory(const char* place) {
    owned_fd directory;
    if (g_linklessOpen.load(std::memory_order_relaxed)) {
        open_how how{};
        how.flags = directory_flags;
        how.resolve = RESOLVE_NO_SYMLINKS;
        directory.reset(static_cast<int>(uninterrupted(
            [&] { return ::syscall(SYS_openat2, AT_FDCWD, place, &how, sizeof how); })));
        if (!directory && errno == ENOSYS) {
            g_linklessOpen.store(false, std::memory_order_relaxed);
        }
    }
    return directory;
}

// The usual way to a directory has no link on it, and is opened in one call. Where it has, or the
// kernel has no such call, each step is judged.
//
// Return: the directory, or nothing with errno set.
owned_fd open_judged_directory(const char* place) {
    owned_fd directory = open_linkless_directory(place);
    path_walk walk;
    if (!directory && walk.follow(place, may_follow)) {
        directory.reset(
            uninterrupted([&] { return ::openat(walk.descriptor(), ".", directory_flags); }));
    }
    return directory;
}

// Return: false with errno set.
bool overwrite(int fd, std::string_view content) {
    return ::lseek(fd, 0, SEEK_SET) == 0 && write_whole(fd, content) &&
           uninterrupted([&] { return ::ftruncate(fd, static_cast<off_t>(content.size())); }) ==
               0 &&
           flush_whole(fd);
}

}  // namespace

// Looked at, judged and read through one descriptor, so that it cannot be exchanged in between.
bool file_replacement::follow_link() {
    const owned_fd opened(uninterrupted(
        [this] { return ::openat(directory_.get(), name_, O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
    struct stat directory {};
    struct stat entry {};
    if (!opened || ::fstat(directory_.get(), &directory) != 0 ||
        ::fstat(opened.get(), &entry) != 0) {
        return false;
    }
    if (!may_follow(directory, entry)) {
        errno = EACCES;
        return false;
    }
    char link[PATH_MAX];
    const ssize_t count = ::readlinkat(opened.get(), "", link, sizeof link);
    if (count < 0) {
        return false;
    }
    const auto length = static_cast<std::size_t>(count);
    // A relative link starts from the directory that holds it.
    const std::size_t kept =
        length > 0 && link[0] == '/' ? 0 : static_cast<std::size_t>(name_ - target_);
    if (kept + length >= sizeof target_) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(target_ + kept, link, length);
    target_[kept + length] = '\0';
    return true;
}

// Splits target_ into the directory, which is opened, and the name in it.
bool file_replacement::open_directory() {
    char* const slash = std::strrchr(target_, '/');
    char* const name = slash != nullptr ? slash + 1 : target_;
    const char first = std::exchange(*name, '\0');
    const char* const place = slash != nullptr ? target_ : ".";
    directory_ = open_judged_directory(place);
    *name = first;
    name_ = name;
    return static_cast<bool>(directory_);
}

// Links are followed by hand and not by realpath(), so that a link whose target is missing leads to
// the place where the file is to be created.
bool file_replacement::find_target() {
    const std::size_t length = std::strlen(path_);
    if (length >= sizeof target_) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(target_, path_, length + 1);
    for (int links = 0; links <= max_links; ++links) {
        if (!open_directory()) {
            return false;
        }
        struct stat status {};
        if (::fstatat(directory_.get(), name_, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return errno == ENOENT;
        }
        if (use_ == name_use::taken_over) {
            errno = EISDIR;
            return !S_ISDIR(status.st_mode);
        }
        if (!S_ISLNK(status.st_mode)) {
            exists_ = true;
            regular_ = S_ISREG(status.st_mode);
            mode_ = status.st_mode & permission_bits;
            owner_ = status.st_uid;
            group_ = status.st_gid;
            return true;
        }
        if (!follow_link()) {
            return false;
        }
    }
    errno = ELOOP;
    return false;
}

// Owner first: a change of owner takes set-id bits away.
bool file_replacement::keep_identity() const {
    struct stat made {};
    if (::fstat(file_.get(), &made) != 0) {
        return false;
    }
    const bool owned_alike = made.st_uid == owner_ && made.st_gid == group_;
    if (!owned_alike && ::fchown(file_.get(), owner_, group_) != 0) {
        // Owners that this user namespace has no number for are the wrong argument to the kernel.
        errno = errno == EINVAL ? EPERM : errno;
        return false;
    }
    // The temporary file was made without set-id bits, so a mode that is the same has none to lose.
    return (made.st_mode & permission_bits) == mode_ || ::fchmod(file_.get(), mode_) == 0;
}

bool file_replacement::make_temporary() {
    const std::size_t room = sizeof temporary_ - 1 - temporary_prefix.size();
    const std::string_view kept = std::string_view(name_).substr(0, room);
    char temporary[sizeof temporary_];
    std::memcpy(temporary, temporary_prefix.data(), temporary_prefix.size());
    std::memcpy(temporary + temporary_prefix.size(), kept.data(), kept.size());
    temporary[temporary_prefix.size() + kept.size()] = '\0';

    // Never readable by more than the old file, not even while it is still empty.
    const auto create = [&] {
        return ::openat(directory_.get(), temporary,
                        O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode_ & 0777);
    };
    file_.reset(uninterrupted(create));
    if (!file_ && errno == EEXIST) {
        if (!remove_leftover(directory_.get(), temporary) &&
            !(use_ == name_use::taken_over && ::unlinkat(directory_.get(), temporary, 0) == 0)) {
            errno = EEXIST;
            return false;
        }
        file_.reset(uninterrupted(create));
    }
    if (!file_) {
        return false;
    }
    std::memcpy(temporary_, temporary, temporary_prefix.size() + kept.size() + 1);
    return !exists_ || keep_identity();
}

bool file_replacement::fill_temporary() {
    if (!reserve(file_.get(), 0, content_.size()) || !write_whole(file_.get(), content_) ||
        !flush_whole(file_.get())) {
        return false;
    }
    // Interrupted or not, the descriptor is closed, and the data are on the device.
    return file_.close() == 0 || errno == EINTR;
}

int32_t file_replacement::fail(int error) {
    error_ = error;
    return result_failed;
}

int32_t file_replacement::prepare(const char* path, std::string_view content, name_use use) {
    path_ = path;
    content_ = content;
    use_ = use;
    if (!find_target()) {
        creation_failed_ = true;
        return fail(errno);
    }
    if (!regular_) {
        return result_ok;
    }
    const bool made = make_temporary();
    if (made && fill_temporary()) {
        return result_ok;
    }
    const int reason = errno;
    discard();
    if (!made && exists_ && forbids_replacement(reason)) {
        return result_ok;
    }
    creation_failed_ = !made;
    return fail(reason);
}

bool file_replacement::settle_for_in_place() {
    struct stat status {};
    return (error_ == ENOSPC || error_ == EDQUOT) && exists_ && regular_ &&
           ::fstatat(directory_.get(), name_, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           status.st_size >= static_cast<off_t>(content_.size());
}

std::string file_replacement::prepared_path() const {
    if (temporary_[0] == '\0') {
        return {};
    }
    return std::string(static_cast<const char*>(target_), name_).append(temporary_);
}

// Return: false with errno set: EAGAIN where nobody takes the rest.
bool file_replacement::write_as_it_stands(int fd) const {
    std::string_view rest = content_;
    for (bool waited = false; !rest.empty();) {
        const ssize_t count = uninterrupted([&] { return ::write(fd, rest.data(), rest.size()); });
        if (count > 0) {
            rest.remove_prefix(static_cast<std::size_t>(count));
            waited = false;
        } else if (count < 0 && errno == EAGAIN && !waited) {
            pollfd place = {fd, POLLOUT, 0};
            uninterrupted([&] { return ::poll(&place, 1, reader_wait); });
            waited = true;
        } else {
            errno = count == 0 ? ENOSPC : errno;
            return false;
        }
    }
    return true;
}

// Return: false with errno set.
bool file_replacement::write_in_place() {
    const owned_fd file(uninterrupted([this] {
        return ::openat(directory_.get(), name_,
                        O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        creation_failed_ = true;
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        return write_as_it_stands(file.get());
    }
    kept_content old;
    if (!part_from_kept_original(directory_.get(), name_, status) ||
        !old.read(file.get(), static_cast<std::size_t>(status.st_size)) ||
        !reserve(file.get(), status.st_size, content_.size())) {
        return false;
    }
    if (overwrite(file.get(), content_)) {
        return true;
    }
    const int reason = errno;
    damaged_ = !overwrite(file.get(), old.view());
    errno = reason;
    return false;
}

int32_t file_replacement::commit_in_place() {
    if (!write_in_place()) {
        return fail(errno);
    }
    replaced_ = true;
    return result_ok;
}

int32_t file_replacement::commit() {
    if (temporary_[0] == '\0') {
        return commit_in_place();
    }
    if (::renameat(directory_.get(), temporary_, directory_.get(), name_) != 0) {
        const int reason = errno;
        discard();  // before the file is written in place: the temporary file takes the room
        return exists_ && forbids_replacement(reason) ? commit_in_place() : fail(reason);
    }
    temporary_[0] = '\0';
    replaced_ = true;
    return flush_whole(directory_.get()) ? result_ok : fail(errno);
}

void file_replacement::report_failure() const {
    print_error("replace_file %s error : %s%s\n", path_, std::strerror(error_),
                damaged_ ? ", the file may be damaged" : "");
}

void file_replacement::discard() {
    file_.reset();
    if (temporary_[0] != '\0') {
        ::unlinkat(directory_.get(), temporary_, 0);
        temporary_[0] = '\0';
    }
}

int32_t replace_file(const char* path, std::string_view content) {
    file_replacement replacement;
    int32_t result = replacement.prepare(path, content);
    if (result == result_ok) {
        result = replacement.commit();
    }
    if (result != result_ok) {
        replacement.report_failure();
    }
    return result;
}

bool is_replacement_leftover(std::string_view name) {
    return name.size() > temporary_prefix.size() && name.starts_with(temporary_prefix);
}

void clear_replacement_leftovers(const char* directory) {
    struct close_directory {
        void operator()(DIR* opened) const { ::closedir(opened); }
    };
    const std::unique_ptr<DIR, close_directory> opened(::opendir(directory));
    if (opened == nullptr) {
        return;
    }
    while (const dirent* entry = ::readdir(opened.get())) {
        if (is_replacement_leftover(entry->d_name)) {
            remove_leftover(::dirfd(opened.get()), entry->d_name);
        }
    }
}

}  // namespace veltrancord
