#include "leaf/path_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace veltrancord {

bool path_walk::start(const char* place) {
    path_.assign(place[0] == '/' ? 1 : 0, '/');
    entry_fd_.reset(::open(place, O_PATH | O_DIRECTORY | O_CLOEXEC));
    return entry_fd_ && ::fstat(entry_fd_.get(), &entry_) == 0;
}

// What the link at entry_fd_ names takes its place in what is still to be walked.
bool path_walk::substitute_link() {
    char link[PATH_MAX];
    const ssize_t count = ::readlinkat(entry_fd_.get(), "", link, sizeof link);
    if (count < 0) {
        return false;
    }
    if (++links_ > max_links) {
        errno = ELOOP;
        return false;
    }
    rest_.insert(0, link, static_cast<std::size_t>(count));
    return true;
}

bool path_walk::step(const step_rule& may_pass) {
    const std::string name = rest_.substr(0, rest_.find('/'));
    rest_.erase(0, name.size());
    const std::size_t walked = path_.size();
    path_.append(walked > 0 && path_.back() != '/' ? "/" : "").append(name);

    directory_ = std::exchange(entry_, {});
    owned_fd directory = std::move(entry_fd_);
    entry_fd_.reset(::openat(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!entry_fd_ || ::fstat(entry_fd_.get(), &entry_) != 0) {
        return false;
    }
    if (!may_pass(directory_, entry_)) {
        errno = EACCES;
        return false;
    }
    if (!S_ISLNK(entry_.st_mode)) {
        return true;
    }
    if (!substitute_link()) {
        return false;
    }
    path_.resize(walked);
    entry_ = directory_;
    entry_fd_ = std::move(directory);
    return rest_[0] != '/' || start("/");
}

bool path_walk::follow(const char* path, const step_rule& may_pass) {
    rest_ = path;
    links_ = 0;
    if (rest_.empty() || rest_.size() >= PATH_MAX) {
        errno = rest_.empty() ? ENOENT : ENAMETOOLONG;
        return false;
    }
    if (!start(rest_[0] == '/' ? "/" : ".")) {
        return false;
    }
    while (!rest_.empty()) {
        const std::size_t slashes = std::min(rest_.find_first_not_of('/'), rest_.size());
        if (slashes > 0 && !S_ISDIR(entry_.st_mode)) {
            errno = ENOTDIR;
            return false;
        }
        rest_.erase(0, slashes);
        if (!rest_.empty() && !step(may_pass)) {
            return false;
        }
    }
    return true;
}

}  // namespace veltrancord
