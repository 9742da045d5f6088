// Who is at the other end of a local socket, as the kernel has it from the moment of its connect.
//
// A user namespace changes nothing of that: its root is told by the number that he has in the
// service's own namespace. Who has none there is told as the overflow user, "nobody" as a rule, and
// is not known then. A socket may be passed on to another process; it stays the one's who
// connected.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "guard/policy.h"

namespace veltrancord {

// The numbers by which the kernel tells users and groups that have none in this user namespace;
// none where everybody has one.
struct overflow_ids {
    std::optional<uid_t> user;
    std::optional<gid_t> group;
};

// As /proc says; what cannot be read counts as a namespace in which some have no number.
[[nodiscard]] overflow_ids read_overflow_ids();

struct peer_credentials {
    pid_t process = 0;  // 0: not to be seen from here
    uid_t user = no_id;
    gid_t group = no_id;
    bool user_known = false;
    bool group_known = false;

    // The supplementary groups that are known, once they have been read.
    std::vector<gid_t> groups;
    bool groups_known = false;
    bool groups_asked = false;

    // For the decision; valid as long as this is, and unchanged.
    [[nodiscard]] peer_identity identity() const noexcept {
        return {user, group, groups, user_known, group_known && groups_known, groups_asked};
    }
};

// Asks for process, user and primary group of the peer of the connected socket `fd`.
//
// Return: false when the kernel does not say.
[[nodiscard]] bool read_credentials(int fd, const overflow_ids& overflow, peer_credentials& peer);

// Asks for the supplementary groups, too; where the kernel does not say (before Linux 4.13) they
// stay unknown. Memory that cannot be had is thrown as std::bad_alloc.
void read_groups(int fd, const overflow_ids& overflow, peer_credentials& peer);

// The name of a process's program, at most 15 bytes, as it is at this moment; "?" when it is gone.
struct program_name {
    char text[16] = "?";
};
[[nodiscard]] program_name name_of_program(pid_t process) noexcept;

}  // namespace veltrancord
