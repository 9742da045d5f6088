#include "trial/trial_folder.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "leaf/whole_io.h"

namespace veltrancord::trial {
namespace {

constexpr const char* group_name = "veltrancord";
constexpr const char* lock_name = "lock";
constexpr const char* guard_name = "guard";
constexpr const char* last_name = "last";
constexpr const char* aside_name = "new";  // what is being written

constexpr off_t largest_journal = off_t{64} << 20U;
constexpr mode_t own_mode = 0600;
constexpr mode_t shared_mode = 0640;  // a lock needs no more than to be opened
constexpr mode_t folder_mode = 0700;
constexpr mode_t group_folder_mode = 02770;

constexpr std::array journal_phases = {phase::waiting, phase::keeping, phase::returning};

const char* name_of(phase one) {
    switch (one) {
        case phase::keeping:
            return "trial-keeping";
        case phase::returning:
            return "trial-returning";
        default:
            return "trial";
    }
}

const char* word_of(ending one) {
    switch (one) {
        case ending::kept:
            return "kept";
        case ending::given_back:
            return "given-back";
        case ending::partly_given_back:
            return "partly-given-back";
        default:
            return "unknown";
    }
}

void pause_for(int milliseconds) {
    const timespec pause = {0, long{milliseconds} * 1'000'000};
    (void)nanosleep(&pause, nullptr);  // a signal may end it early
}

}  // namespace

std::string default_folder() {
    const char* named = secure_getenv("VELTRANCORD_TRIAL");
    return named != nullptr && *named != '\0' ? named : VELTRANCORD_TRIAL_DIRECTORY;
}

bool trial_folder::make(const std::string& path) const {
    if (::geteuid() != 0 && path == VELTRANCORD_TRIAL_DIRECTORY) {
        errno = ENOENT;
        return false;
    }
    if (::mkdir(path.c_str(), folder_mode) != 0) {
        return errno == EEXIST;
    }
    const group* const entry = ::geteuid() == 0 ? ::getgrnam(group_name) : nullptr;
    return entry == nullptr || (::chown(path.c_str(), 0, entry->gr_gid) == 0 &&
                                ::chmod(path.c_str(), group_folder_mode) == 0);
}

bool trial_folder::open(const std::string& path) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    folder_.reset(::open(path.c_str(), flags));
    if (!folder_ && errno == ENOENT && make(path)) {
        folder_.reset(::open(path.c_str(), flags));
    }
    struct stat status {};
    if (!folder_ || ::fstat(folder_.get(), &status) != 0) {
        return false;
    }
    if ((status.st_uid != 0 && status.st_uid != ::geteuid()) || (status.st_mode & S_IWOTH) != 0) {
        errno = EPERM;
        return false;
    }
    return true;
}

// Another user's lock is opened as it is: some kernels refuse O_CREAT where the folder is shared.
owned_fd trial_folder::open_lock(const char* name) const {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    owned_fd file(::openat(folder_.get(), name, flags));
    if (!file && errno == ENOENT) {
        file.reset(::openat(folder_.get(), name, flags | O_CREAT | O_EXCL, shared_mode));
        if (file) {
            (void)::fchmod(file.get(), shared_mode);  // whatever the umask
        } else if (errno == EEXIST) {
            file.reset(::openat(folder_.get(), name, flags));
        }
    }
    return file;
}

bool trial_folder::lock(int milliseconds) {
    constexpr int step = 20;
    owned_fd file = open_lock(lock_name);
    if (!file) {
        return false;
    }
    for (int waited = 0; ::flock(file.get(), LOCK_EX | LOCK_NB) != 0; waited += step) {
        if (errno != EINTR && errno != EWOULDBLOCK) {
            return false;
        }
        if (milliseconds >= 0 && waited >= milliseconds) {
            errno = EAGAIN;
            return false;
        }
        pause_for(step);
    }
    lock_ = std::move(file);
    return true;
}

trial_folder::found trial_folder::look() const {
    for (const phase one : journal_phases) {
        struct stat status {};
        if (::fstatat(folder_.get(), name_of(one), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            return {one, status.st_ino, status.st_uid};
        }
    }
    return {};
}

bool trial_folder::put_file(const char* name, std::string_view text, mode_t mode) {
    (void)::unlinkat(folder_.get(), aside_name, 0);
    owned_fd file(::openat(folder_.get(), aside_name,
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, own_mode));
    const bool written = file && write_whole(file.get(), text) && ::fchmod(file.get(), mode) == 0 &&
                         flush_whole(file.get()) && file.close() == 0;
    return written && ::renameat(folder_.get(), aside_name, folder_.get(), name) == 0;
}

bool trial_folder::put_journal(std::string_view text) {
    return put_file(name_of(phase::waiting), text, own_mode);
}

bool trial_folder::set_phase(phase now, phase next) {
    return ::renameat(folder_.get(), name_of(now), folder_.get(), name_of(next)) == 0;
}

owned_fd trial_folder::hold_journal(phase now) const {
    return owned_fd(
        ::openat(folder_.get(), name_of(now), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool trial_folder::read_journal(phase now, std::string& text) const {
    const owned_fd file = hold_journal(now);
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > largest_journal) {
        errno = EINVAL;
        return false;
    }
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t count = read_whole(file.get(), text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count >= 0;
}

bool trial_folder::end(phase now, ending how) {
    const found journal = look();
    char text[64];
    std::snprintf(text, sizeof text, "%ju %s\n", static_cast<uintmax_t>(journal.journal),
                  word_of(how));
    return put_file(last_name, text, shared_mode) &&
           ::unlinkat(folder_.get(), name_of(now), 0) == 0;
}

ending trial_folder::how_ended(ino_t journal) const {
    const owned_fd file(
        ::openat(folder_.get(), last_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char text[64];
    const ssize_t count = file ? read_whole(file.get(), text, sizeof text) : -1;
    const std::string_view line(text, count > 0 ? static_cast<std::size_t>(count) : 0);
    uintmax_t number = 0;
    const auto parsed = std::from_chars(line.data(), line.data() + line.size(), number);
    if (parsed.ec != std::errc() || number != journal) {
        return ending::unknown;
    }
    for (const ending one : {ending::kept, ending::given_back, ending::partly_given_back}) {
        if (line.substr(static_cast<std::size_t>(parsed.ptr - line.data())) ==
            std::string(" ").append(word_of(one)).append("\n")) {
            return one;
        }
    }
    return ending::unknown;
}

bool trial_folder::become_guard() {
    owned_fd file = open_lock(guard_name);
    if (!file || uninterrupted([&] { return ::flock(file.get(), LOCK_EX); }) != 0) {
        return false;
    }
    guard_ = std::move(file);
    return true;
}

bool trial_folder::is_guarded() const {
    const owned_fd file = open_lock(guard_name);
    return file && ::flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace veltrancord::trial
