// The reply body that a handler builds.
//
// The text grows on demand up to a bound given when it is opened. The reply capacity is that
// bound, never an allocation: clearing and touching a buffer of the full capacity for each request
// would cost more than all the rest of the request, and grow with the configuration. Four bytes are
// kept free in front of the text, so that the reply frame (result, then body) is one block of
// memory and goes out without a copy.
//
// Used by the server thread only. Nothing here throws; memory that cannot be had is a false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "handler/growing_block.h"

namespace veltrancord {

class reply_text {
  public:
    static constexpr std::size_t frame_header = 4;

    reply_text() noexcept = default;
    reply_text(reply_text&& other) noexcept;
    reply_text& operator=(reply_text&& other) noexcept;
    reply_text(const reply_text&) = delete;
    reply_text& operator=(const reply_text&) = delete;
    ~reply_text() { close(); }

    // Makes an empty text of at most `bound` bytes and allocates its first block. An opened text
    // counts as a reply body even while it is empty.
    //
    // Return: false when memory could not be had; the text is then closed.
    [[nodiscard]] bool open(std::size_t bound) noexcept;

    // Frees the memory; is_open() is false from then on. The text may hold a password, and is wiped
    // unless it is so long that its memory goes back to the system. Where a text of more than 256
    // bytes had to be moved while it grew, its first part may stay behind.
    void close() noexcept;

    // Appends all of `text` or nothing.
    //
    // Return: false when the bound would be passed or memory could not be had.
    [[nodiscard]] bool append(std::string_view text) noexcept {
        // Listings append four short pieces for each element, so the usual case is in line.
        if (text.size() > allocated_ - size_ && !grow_by(text.size())) {
            return false;
        }
        if (!text.empty()) {
            std::memcpy(block_.get() + frame_header + size_, text.data(), text.size());
            size_ += text.size();
        }
        return is_open();
    }

    // Appends the texts one behind the other, or nothing: what a listing does for each of its
    // lines.
    //
    // Return: as append().
    template <class... Pieces>
    [[nodiscard]] bool append_all(const Pieces&... pieces) noexcept {
        const std::size_t total = (std::string_view(pieces).size() + ...);
        if (total > allocated_ - size_ && !grow_by(total)) {
            return false;
        }
        if (is_open()) {
            char* to = block_.get() + frame_header + size_;
            ((to += std::string_view(pieces).copy(to, std::string_view::npos)), ...);
            size_ += total;
        }
        return is_open();
    }

    // Room for `count` bytes behind the text, to be written in place; take() then makes the first
    // of them part of the text. Valid until the next call of anything else.
    //
    // Return: null when the bound would be passed or memory could not be had.
    [[nodiscard]] char* room(std::size_t count) noexcept {
        if (count > allocated_ - size_ && !grow_by(count)) {
            return nullptr;
        }
        return is_open() ? block_.get() + frame_header + size_ : nullptr;
    }

    // Appends the first `count` bytes of the room that was given last.
    void take(std::size_t count) noexcept { size_ += count; }

    // Appends `count` bytes, all zero, and hands them out to be filled; they stay valid until the
    // next call that grows the text.
    //
    // Return: an empty span when the bound would be passed or memory could not be had.
    [[nodiscard]] std::span<char> extend(std::size_t count) noexcept;

    // Cuts the text to its first `length` bytes; a longer length does nothing.
    void truncate(std::size_t length) noexcept;

    // Makes sure that `length` bytes in all can be appended without another allocation.
    //
    // Return: false when the bound is below `length` or memory could not be had.
    [[nodiscard]] bool reserve(std::size_t length) noexcept;

    [[nodiscard]] bool is_open() const noexcept { return block_.get() != nullptr; }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] std::size_t bound() const noexcept { return bound_; }

    // The text; valid until the next change.
    [[nodiscard]] std::string_view view() const noexcept;

    // The 4 bytes for `result` filled in, little-endian, and the text behind them: the reply frame.
    // The text must be open. Valid until the next change.
    [[nodiscard]] std::string_view frame(int32_t result) noexcept;

    // For a frame that is sent in part and has to wait for its client: gives the memory of the
    // first `sent` bytes back where that is most of it. The text is then what is left of the frame,
    // and only good for being sent.
    //
    // Return: whether it was done; otherwise nothing has changed.
    bool drop_sent(std::size_t sent) noexcept;

  private:
    void wipe() noexcept;
    [[nodiscard]] bool grow_by(std::size_t count) noexcept;

    growing_block block_;  // frame_header bytes, then the text
    std::size_t size_ = 0;
    std::size_t allocated_ = 0;  // bytes of text that the block has room for
    std::size_t bound_ = 0;
};

}  // namespace veltrancord
