#include "guard/users.h"

#include <utility>

namespace veltrancord {

uint64_t count_refusal(user_record& user, int64_t now) noexcept {
    ++user.refused;
    ++user.untold;
    if (user.told && now - *user.told < refusal_line_interval) {
        return 0;
    }
    user.told = now;
    return std::exchange(user.untold, 0);
}

user_record& user_table::find(uid_t user) {
    if (users_.size() > max_idle_users && !users_.contains(user)) {
        std::erase_if(users_, [](const auto& entry) { return entry.second.places == 0; });
    }
    return users_[user];
}

}  // namespace veltrancord
