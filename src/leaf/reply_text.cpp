#include "leaf/reply_text.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "leaf/byte_order.h"

namespace veltrancord {

namespace {

// Holds most replies of a single value without growing.
constexpr std::size_t first_allocation = 256;

}  // namespace

reply_text::reply_text(reply_text&& other) noexcept
    : block_(std::move(other.block_)),
      size_(std::exchange(other.size_, 0)),
      allocated_(std::exchange(other.allocated_, 0)),
      bound_(std::exchange(other.bound_, 0)) {}

reply_text& reply_text::operator=(reply_text&& other) noexcept {
    block_ = std::move(other.block_);
    size_ = std::exchange(other.size_, 0);
    allocated_ = std::exchange(other.allocated_, 0);
    bound_ = std::exchange(other.bound_, 0);
    return *this;
}

bool reply_text::open(std::size_t bound) noexcept {
    close();
    bound_ = std::min(bound, std::numeric_limits<std::size_t>::max() - frame_header);
    const std::size_t first = std::min(bound_, first_allocation);
    block_.reset(static_cast<char*>(std::malloc(frame_header + first)));
    if (!block_) {
        bound_ = 0;
        return false;
    }
    allocated_ = first;
    return true;
}

void reply_text::close() noexcept {
    block_.reset();
    size_ = allocated_ = bound_ = 0;
}

bool reply_text::reserve(std::size_t length) noexcept {
    if (!block_ || length > bound_) {
        return false;
    }
    if (length <= allocated_) {
        return true;
    }
    const std::size_t doubled = allocated_ > bound_ / 2 ? bound_ : allocated_ * 2;
    const std::size_t wanted = std::max(length, doubled);
    char* const grown = static_cast<char*>(std::realloc(block_.get(), frame_header + wanted));
    if (grown == nullptr) {
        return false;
    }
    static_cast<void>(block_.release());
    block_.reset(grown);
    allocated_ = wanted;
    return true;
}

bool reply_text::grow_by(std::size_t count) noexcept {
    return count <= bound_ - size_ && reserve(size_ + count);
}

std::span<char> reply_text::extend(std::size_t count) noexcept {
    if (!grow_by(count)) {
        return {};
    }
    char* const added = block_.get() + frame_header + size_;
    std::memset(added, 0, count);
    size_ += count;
    return {added, count};
}

void reply_text::truncate(std::size_t length) noexcept {
    size_ = std::min(size_, length);
}

std::string_view reply_text::view() const noexcept {
    return block_ ? std::string_view(block_.get() + frame_header, size_) : std::string_view();
}

std::string_view reply_text::frame(int32_t result) noexcept {
    store_le32(reinterpret_cast<unsigned char*>(block_.get()), static_cast<uint32_t>(result));
    return {block_.get(), frame_header + size_};
}

bool reply_text::drop_sent(std::size_t sent) noexcept {
    const std::size_t left = frame_header + size_ - sent;
    if (left > allocated_ / 2) {
        return false;
    }
    // A block of its own: cut off where it is, the large one would leave a hole that the next large
    // one does not fit into.
    char* const rest = static_cast<char*>(std::malloc(frame_header + left));
    if (rest == nullptr) {
        return false;
    }
    std::memcpy(rest + frame_header, block_.get() + sent, left);
    block_.reset(rest);
    size_ = allocated_ = left;
    return true;
}

}  // namespace veltrancord
