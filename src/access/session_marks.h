// What a check looks at first: a fingerprint of each session's token, side by side.
//
// Every page of the web interface checks its session. Going from session to session and from each
// to its token takes a hundred lines of memory; the fingerprints of all lie in a dozen. That one
// differs tells nothing of where the tokens do, and one that matches is still compared as a whole.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace veltrancord {

struct SessionItem;

// Depends on every byte and takes the same time for all tokens of one length.
[[nodiscard]] inline uint64_t token_fingerprint(std::string_view token) noexcept {
    constexpr uint64_t factor = 0x9e37'79b9'7f4a'7c15;
    uint64_t sum = token.size();
    for (std::size_t at = 0; at < token.size(); at += sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, token.data() + at, std::min(sizeof word, token.size() - at));
        sum = (sum ^ word) * factor;
        sum ^= sum >> 32U;
    }
    return sum;
}

// The marks of at most `capacity` sessions, the oldest first. Server thread only.
template <std::size_t capacity>
class session_marks {
  public:
    void append(const SessionItem& item, std::string_view token) noexcept {
        fingerprints_[count_] = token_fingerprint(token);
        items_[count_] = &item;
        ++count_;
    }

    void remove_first() noexcept {
        --count_;
        for (std::size_t at = 0; at < count_; ++at) {
            fingerprints_[at] = fingerprints_[at + 1];
            items_[at] = items_[at + 1];
        }
    }

    void clear() noexcept { count_ = 0; }

    // Return: whether `is_it` says so of one of the sessions whose fingerprint is that of `token`.
    template <class Predicate>
    [[nodiscard]] bool any(std::string_view token, const Predicate& is_it) const {
        const uint64_t wanted = token_fingerprint(token);
        for (std::size_t at = 0; at < count_; ++at) {
            if (fingerprints_[at] == wanted && is_it(*items_[at])) {
                return true;
            }
        }
        return false;
    }

  private:
    std::array<uint64_t, capacity> fingerprints_{};
    std::array<const SessionItem*, capacity> items_{};
    std::size_t count_ = 0;
};

}  // namespace veltrancord
