// What the guard remembers of each user who has come: places held, and refusals to be told.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

namespace veltrancord {

// One user; all who are not known count as one, with the number no_id.
struct user_record {
    std::size_t places = 0;       // clients that the server holds
    uint64_t refused = 0;         // since the service was started, or the record made
    uint64_t untold = 0;          // refusals since the last line that told of one
    std::optional<int64_t> told;  // when that line was printed; milliseconds, monotonic
};

// Between two lines about one user's refusals; milliseconds.
inline constexpr int64_t refusal_line_interval = 60'000;

// Counts a refusal of the user at the time `now`.
//
// Return: how many refusals a line has to tell that is due now, this one included; 0: none is.
[[nodiscard]] uint64_t count_refusal(user_record& user, int64_t now) noexcept;

// Records stay where they are as long as they are kept.
class user_table {
  public:
    // Users beyond this many are forgotten, with what was counted of them, once they hold no
    // places.
    static constexpr std::size_t max_idle_users = 256;

    // The user's record, made when there is none. Memory that cannot be had is thrown as
    // std::bad_alloc.
    [[nodiscard]] user_record& find(uid_t user);

    [[nodiscard]] std::size_t size() const noexcept { return users_.size(); }

  private:
    std::unordered_map<uid_t, user_record> users_;
};

}  // namespace veltrancord
