// Following a path one step at a time, so that the caller says which steps may be taken.
//
// The kernel follows links by itself, whoever owns them.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

#include "leaf/owned_fd.h"

namespace veltrancord {

// As many links as the kernel follows on one path.
inline constexpr int max_links = 40;

class path_walk {
  public:
    // Whether the walk may go on to `entry`, which `directory` holds. Of a link it is asked before
    // it is followed, and again for each step of what the link names.
    using step_rule = std::function<bool(const struct stat& directory, const struct stat& entry)>;

    // Walks to what `path` names, which must exist. A relative path starts in the working
    // directory. No descriptor but an O_PATH one is opened, so that nothing happens to what is met.
    //
    // Return: false with errno set, EACCES where the rule said no; then path(), directory() and
    // entry() are those of the step that could not be taken.
    [[nodiscard]] bool follow(const char* path, const step_rule& may_pass);

    // The entry reached, opened with O_PATH.
    [[nodiscard]] int descriptor() const { return entry_fd_.get(); }

    // How the entry is reached without links, and what the system says about it and its directory.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const struct stat& directory() const { return directory_; }
    [[nodiscard]] const struct stat& entry() const { return entry_; }

  private:
    [[nodiscard]] bool start(const char* place);
    [[nodiscard]] bool step(const step_rule& may_pass);
    [[nodiscard]] bool substitute_link();

    std::string path_;   // walked so far
    std::string rest_;   // still to be walked
    owned_fd entry_fd_;  // what path_ names
    struct stat directory_ {};
    struct stat entry_ {};
    int links_ = 0;
};

}  // namespace veltrancord
