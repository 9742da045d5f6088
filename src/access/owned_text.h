// Text copied to the heap, which its record owns.
//
// The bytes are wiped before they are freed, since some of these texts are session tokens and
// captchas: freed memory comes up again in other replies' buffers and in core files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace veltrancord {

// Clears `length` bytes and frees them.
struct wiping_deleter {
    std::size_t length = 0;
    void operator()(char* bytes) const noexcept;
};

// Move-only. Absent until assigned: an absent text is something else than an empty one, and equals
// no text at all.
class owned_text {
  public:
    // Copies `text` in place of what is held.
    //
    // Return: false when memory could not be had; what was held then stays.
    [[nodiscard]] bool assign(std::string_view text) noexcept;

    [[nodiscard]] bool absent() const noexcept { return bytes_ == nullptr; }

    // The text, without data when it is absent. Valid until the next assignment.
    [[nodiscard]] std::string_view view() const noexcept { return {bytes_.get(), length()}; }

    // Whether a text is held and equals `text`.
    [[nodiscard]] bool equals(std::string_view text) const noexcept {
        return !absent() && view() == text;
    }

  private:
    [[nodiscard]] std::size_t length() const noexcept { return bytes_.get_deleter().length; }

    std::unique_ptr<char[], wiping_deleter> bytes_;
};

// Compares secrets in a time that tells nothing of where two texts of one length differ, so that a
// token cannot be guessed one character after the other. In line, since a token is compared with
// every session there is.
//
// Return: whether the texts are equal.
[[nodiscard]] inline bool equals_in_constant_time(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    uint64_t difference = 0;
    std::size_t at = 0;
    for (; at + sizeof(uint64_t) <= a.size(); at += sizeof(uint64_t)) {
        uint64_t left = 0;
        uint64_t right = 0;
        std::memcpy(&left, a.data() + at, sizeof left);
        std::memcpy(&right, b.data() + at, sizeof right);
        difference |= left ^ right;
    }
    for (; at < a.size(); ++at) {
        difference |= static_cast<unsigned char>(a[at] ^ b[at]);
    }
    return difference == 0;
}

}  // namespace veltrancord
