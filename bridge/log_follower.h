// What has come into the event log since it was last looked at, found in the log's file.
//
// The commands that read the log share one cursor among all clients, so reading it by them would
// disturb whoever pages through it. The file is replaced whole with each event. It holds a ring of
// elements E1 to E<capacity> and no trace of where it goes on; that is known here from what was
// there before.
//
// Exact as long as there are fewer events between two looks than the ring holds. After a whole turn
// the newest is taken to be the one with the latest time, and the number of the lost is the least
// that is possible. Used by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord::bridge {

inline constexpr std::size_t max_log_entries = 1000;  // as the service keeps at most

class log_follower {
  public:
    struct news {
        std::vector<std::string> entries;  // oldest first, as they stand in the file, unescaped
        uint64_t lost = 0;                 // that came before them and are gone
    };

    // Takes what the file holds now; the first time everything in it is old. Elements beyond
    // max_log_entries are not looked at.
    [[nodiscard]] news take(std::string_view file);

  private:
    using hash_list = std::vector<std::size_t>;

    struct file_view {
        std::vector<std::string_view> entries;  // of position 1 on; into the text
        hash_list hashes;
    };

    [[nodiscard]] static file_view parse(std::string_view file);
    [[nodiscard]] static std::size_t newest_by_time(const file_view& now);
    [[nodiscard]] std::size_t walk(const file_view& now, news& found) const;
    [[nodiscard]] static std::size_t after_a_turn(const file_view& now, std::size_t last,
                                                  news& found);

    bool known_ = false;
    std::size_t last_ = 0;  // position of the newest entry; 0: the log was empty
    hash_list hashes_;      // of what each position held
};

}  // namespace veltrancord::bridge
