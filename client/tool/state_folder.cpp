#include "state_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace veltrancord::tool {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool make_folders(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (mkdir(path.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

}  // namespace

std::string state_folder() {
    std::string path = variable("VELTRANCORD_STATE");
    if (path.empty() && !variable("XDG_STATE_HOME").empty()) {
        path = variable("XDG_STATE_HOME") + "/veltrancordctl";
    }
    if (path.empty() && !variable("HOME").empty()) {
        path = variable("HOME") + "/.local/state/veltrancordctl";
    }
    if (path.empty()) {
        path = "/var/tmp/veltrancordctl-" + std::to_string(getuid());
    }
    struct stat found {};
    if (!make_folders(path) || lstat(path.c_str(), &found) != 0) {
        return {};
    }
    if (!S_ISDIR(found.st_mode) || found.st_uid != getuid()) {
        errno = EPERM;
        return {};
    }
    return path;
}

std::string shared_state_folder() {
    const char* const shared = VELTRANCORD_STATE_DIRECTORY;
    struct stat found {};
    if (variable("VELTRANCORD_STATE").empty() && stat(shared, &found) == 0 &&
        S_ISDIR(found.st_mode) && access(shared, W_OK | X_OK) == 0) {
        return shared;
    }
    return state_folder();
}

}  // namespace veltrancord::tool
