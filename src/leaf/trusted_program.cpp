#include "leaf/trusted_program.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "leaf/message.h"
#include "leaf/path_walk.h"

namespace veltrancord {

namespace {

constexpr mode_t others_write = S_IWGRP | S_IWOTH;

// In a user namespace that has no number for root, the system's directories belong to whoever the
// root directory belongs to: who owns that one could exchange everything anyway.
bool owns_the_system(uid_t user) {
    struct stat root {};
    return ::stat("/", &root) == 0 && root.st_uid == user;
}

bool is_shared(const struct stat& directory) {
    return (directory.st_mode & others_write) != 0;
}

// Return: what speaks against going on to `entry` in `directory`; null for nothing.
const char* objection(const struct stat& directory, const struct stat& entry, uid_t own_user) {
    const bool shared = is_shared(directory);
    if (shared && ((directory.st_mode & S_ISVTX) == 0 ||
                   !(directory.st_uid == 0 || owns_the_system(directory.st_uid)))) {
        return "lies in a directory that others may write to";
    }
    // All users without a number in this namespace look alike; where everybody may put files, the
    // owner of the system's directories may be any of them.
    if (entry.st_uid != 0 && entry.st_uid != own_user &&
        (shared || !owns_the_system(entry.st_uid))) {
        return "belongs to another user";
    }
    if (S_ISDIR(entry.st_mode)) {
        return nullptr;  // who may write to it counts for what it holds
    }
    // Others can give a file of root's a second name there, where the kernel lets them.
    if (shared && entry.st_nlink > 1) {
        return "has several names";
    }
    return !S_ISLNK(entry.st_mode) && (entry.st_mode & others_write) != 0
               ? "may be changed by others"
               : nullptr;
}

std::string reason_against(const char* path, uid_t own_user) {
    const char* why = nullptr;
    path_walk walk;
    if (walk.follow(path, [&](const struct stat& directory, const struct stat& entry) {
            why = objection(directory, entry, own_user);
            return why == nullptr;
        })) {
        return {};
    }
    const int error = errno;
    if (error == ENOENT && !is_shared(walk.directory())) {
        return {};  // and nobody else can put it there: its start fails by itself
    }
    return walk.path() +
           (why != nullptr ? std::string(" ") + why : std::string(": ") + std::strerror(error));
}

}  // namespace

std::string why_not_trusted(const char* path, uid_t own_user) {
    if (path[0] == '/') {
        return reason_against(path, own_user);
    }
    // Started where the service stands; the steps to that place count, too.
    char here[PATH_MAX];
    if (::getcwd(here, sizeof here) == nullptr) {
        return std::strerror(errno);
    }
    return reason_against((std::string(here) + "/" + path).c_str(), own_user);
}

bool is_trusted_program(const char* path) {
    const std::string why = why_not_trusted(path, ::geteuid());
    if (!why.empty()) {
        print_error("program not run: %s : %s\n", path, why.c_str());
    }
    return why.empty();
}

}  // namespace veltrancord
