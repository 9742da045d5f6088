// The access file: whether it may be obeyed, and what it says.
//
// It is obeyed only when nobody but root and the service's own user could have written it: it and
// each step on the way to it belong to one of them, and no other may write to them; nor may it be a
// link. Nothing here prints.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "guard/policy.h"

namespace veltrancord {

enum class policy_state : uint8_t {
    absent,  // there is no such file
    bad,     // there is one, and it is not to be obeyed; the mistakes say why
    good,
};

struct policy_reading {
    policy_state state = policy_state::absent;
    access_policy policy;                  // of a good one
    std::vector<policy_mistake> mistakes;  // of a bad one, at least one
};

// Where the build has the access file.
[[nodiscard]] const char* access_file_path() noexcept;

// Reads the file at `path` for a service of the user `own_user`. Anything but a regular file is
// bad, and is not waited for. Names are looked up by `accounts`. Memory that cannot be had is
// thrown as std::bad_alloc.
[[nodiscard]] policy_reading read_policy_file(const char* path, uid_t own_user,
                                              const account_lookup& accounts);

}  // namespace veltrancord
