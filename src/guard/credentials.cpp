#include "guard/credentials.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

// What the kernel uses unless it is told otherwise.
constexpr uint32_t usual_overflow_id = 65'534;

constexpr int most_group_tries = 4;  // others cannot change the list; a signal's fault at most

// Whether every number has one in this user namespace.
bool maps_everybody(const char* path) {
    std::ifstream file(path);
    uint64_t first = 0;
    uint64_t outside = 0;
    uint64_t count = 0;
    uint64_t mapped = 0;
    while (file >> first >> outside >> count) {
        mapped += count;
    }
    return mapped >= no_id;
}

std::optional<uint32_t> overflow_id(const char* map, const char* setting) {
    if (maps_everybody(map)) {
        return std::nullopt;
    }
    std::ifstream file(setting);
    uint32_t id = 0;
    return file >> id ? id : usual_overflow_id;
}

}  // namespace

overflow_ids read_overflow_ids() {
    return {overflow_id("/proc/self/uid_map", "/proc/sys/kernel/overflowuid"),
            overflow_id("/proc/self/gid_map", "/proc/sys/kernel/overflowgid")};
}

bool read_credentials(int fd, const overflow_ids& overflow, peer_credentials& peer) {
    ucred found = {};
    socklen_t size = sizeof found;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &found, &size) != 0 || size != sizeof found ||
        found.uid == no_id) {
        return false;
    }
    peer.process = found.pid;
    peer.user_known = found.uid != overflow.user;
    peer.user = peer.user_known ? found.uid : no_id;
    peer.group_known = found.gid != overflow.group;
    peer.group = peer.group_known ? found.gid : no_id;
    return true;
}

void read_groups(int fd, const overflow_ids& overflow, peer_credentials& peer) {
    constexpr std::size_t usual_groups = 32;
    std::vector<gid_t> groups(usual_groups);
    for (int attempt = 0; attempt < most_group_tries; ++attempt) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const bool read = ::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0;
        if (!read && errno != ERANGE) {
            return;
        }
        groups.resize(size / sizeof(gid_t));
        if (read) {
            const auto unknown = std::find(groups.begin(), groups.end(), overflow.group);
            peer.groups_known = unknown == groups.end();
            groups.erase(std::remove(unknown, groups.end(), overflow.group), groups.end());
            peer.groups = std::move(groups);
            return;
        }
    }
}

program_name name_of_program(pid_t process) noexcept {
    program_name name;
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(process));
    const owned_fd file(process > 0 ? ::open(path, O_RDONLY | O_CLOEXEC) : -1);
    char text[sizeof name.text];
    const ssize_t count = file ? read_whole(file.get(), text, sizeof text - 1) : -1;
    if (count > 0) {
        text[count] = '\0';
        text[std::strcspn(text, "\n")] = '\0';
        // A process gives itself any name; nobody reads a line's end or an escape sequence here.
        std::replace_if(
            text, text + std::strlen(text),
            [](char character) { return character < ' ' || character == 0x7F; }, '?');
        std::memcpy(name.text, text, sizeof text);
    }
    return name;
}

}  // namespace veltrancord
