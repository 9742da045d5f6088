#include "guard/credentials.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "leaf/owned_fd.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

// What the kernel uses unless it is told otherwise.
constexpr uint32_t usual_overflow_id = 65'534;

constexpr int most_group_tries = 4;  // others cannot change the list; a signal's fault at most

// The text of a file of /proc, up to its bound; empty when it cannot be read.
std::string proc_text(const char* path) {
    constexpr std::size_t bound = 4096;
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC));
    std::string text(bound, '\0');
    const ssize_t count = file ? read_whole(file.get(), text.data(), text.size()) : 0;
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

// The numbers of a text, with anything between them.
std::vector<uint64_t> numbers_of(const std::string& text) {
    std::vector<uint64_t> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end) {
        uint64_t number = 0;
        const auto [stopped, error] = std::from_chars(at, end, number);
        if (error == std::errc()) {
            numbers.push_back(number);
        }
        at = stopped == at ? at + 1 : stopped;
    }
    return numbers;
}

// Whether every number has one in this user namespace: of each line the third tells how many do.
bool maps_everybody(const char* path) {
    const std::vector<uint64_t> numbers = numbers_of(proc_text(path));
    uint64_t mapped = 0;
    for (std::size_t at = 2; at < numbers.size(); at += 3) {
        mapped += numbers[at];
    }
    return mapped >= no_id;
}

std::optional<uint32_t> overflow_id(const char* map, const char* setting) {
    if (maps_everybody(map)) {
        return std::nullopt;
    }
    const std::vector<uint64_t> numbers = numbers_of(proc_text(setting));
    return numbers.empty() ? usual_overflow_id : static_cast<uint32_t>(numbers[0]);
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
    peer.groups_asked = true;
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
