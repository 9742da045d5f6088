#include "handler/reply_text.h"

#include <string.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "leaf/byte_order.h"

namespace veltrancord {

namespace {

// Holds most replies of a single value without growing.
constexpr std::size_t first_allocation = 256;

// Below this a text that grows gets four times the room and not twice, so that the listing of a
// document is moved a few times only.
constexpr std::size_t fast_growth = std::size_t{64} << 10;

}  // namespace

reply_text::reply_text(reply_text&& other) noexcept
    : block_(std::move(other.block_)),
      size_(std::exchange(other.size_, 0)),
      allocated_(std::exchange(other.allocated_, 0)),
      bound_(std::exchange(other.bound_, 0)) {}

reply_text& reply_text::operator=(reply_text&& other) noexcept {
    close();
    block_ = std::move(other.block_);
    size_ = std::exchange(other.size_, 0);
    allocated_ = std::exchange(other.allocated_, 0);
    bound_ = std::exchange(other.bound_, 0);
    return *this;
}

bool reply_text::open(std::size_t bound) noexcept {
    close();
    bound_ = std::min(bound, growing_block::largest - frame_header);
    const std::size_t first = std::min(bound_, first_allocation);
    if (!block_.grow(frame_header + first, 0)) {
        bound_ = 0;
        return false;
    }
    allocated_ = first;
    return true;
}

void reply_text::wipe() noexcept {
    if (is_open() && block_.size() <= growing_block::largest_on_heap) {
        ::explicit_bzero(block_.get(), frame_header + size_);
    }
}

void reply_text::close() noexcept {
    wipe();
    block_.reset();
    size_ = allocated_ = bound_ = 0;
}

bool reply_text::reserve(std::size_t length) noexcept {
    if (!is_open() || length > bound_) {
        return false;
    }
    if (length <= allocated_) {
        return true;
    }
    const std::size_t factor = allocated_ < fast_growth ? 4 : 2;
    const std::size_t enlarged = allocated_ > bound_ / factor ? bound_ : allocated_ * factor;
    const std::size_t wanted = std::max(length, enlarged);
    if (!block_.grow(frame_header + wanted, frame_header + bound_)) {
        return false;
    }
    allocated_ = std::min(block_.size() - frame_header, bound_);
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
    return is_open() ? std::string_view(block_.get() + frame_header, size_) : std::string_view();
}

std::string_view reply_text::frame(int32_t result) noexcept {
    store_le32(reinterpret_cast<unsigned char*>(block_.get()), static_cast<uint32_t>(result));
    return {block_.get(), frame_header + size_};
}

bool reply_text::drop_sent(std::size_t sent) noexcept {
    const std::size_t left = frame_header + size_ - sent;
    if (left > size_ / 2) {
        return false;
    }
    // A block of its own: cut off where it is, the large one would leave a hole that the next large
    // one does not fit into.
    growing_block rest;
    if (!rest.grow(frame_header + left, 0)) {
        return false;
    }
    std::memcpy(rest.get() + frame_header, block_.get() + sent, left);
    wipe();
    block_ = std::move(rest);
    size_ = allocated_ = left;
    return true;
}

}  // namespace veltrancord
