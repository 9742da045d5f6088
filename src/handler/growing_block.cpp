#include "handler/growing_block.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace veltrancord {

namespace {

constexpr std::size_t huge_page = std::size_t{2} << 20;

// More address space is not taken on a mere guess.
constexpr std::size_t most_foreseen = std::size_t{64} << 20;

constexpr std::size_t whole_huge_pages(std::size_t size) {
    return (size + huge_page - 1) / huge_page * huge_page;
}

// Return: memory for whole huge pages, beginning with one, or null.
char* map_huge_pages(std::size_t length) noexcept {
    void* const mapped = ::mmap(nullptr, length + huge_page, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    char* const begin = static_cast<char*>(mapped);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(begin) % huge_page;
    if (before > 0) {
        static_cast<void>(::munmap(begin, before));
    }
    static_cast<void>(::munmap(begin + before + length, huge_page - before));
    // A kernel without huge pages refuses, and small ones come one by one.
    static_cast<void>(::madvise(begin + before, length, MADV_HUGEPAGE));
    return begin + before;
}

}  // namespace

void growing_block::unmapper::operator()(char* memory) const noexcept {
    if (mapped == 0) {
        std::free(memory);
    } else {
        static_cast<void>(::munmap(memory, mapped));
    }
}

void growing_block::hold(char* memory, std::size_t size, std::size_t mapped) noexcept {
    memory_.reset();
    memory_.get_deleter().mapped = mapped;
    memory_.reset(memory);
    size_ = size;
}

bool growing_block::grow(std::size_t size, std::size_t foreseen) noexcept {
    if (memory_.get_deleter().mapped != 0) {
        return grow_mapping(size);
    }
    if (size <= largest_on_heap) {
        return grow_on_heap(size);
    }
    // Where the whole cannot be had, what is needed now may still be.
    return move_to_mapping(std::max(size, std::min(foreseen, most_foreseen))) ||
           move_to_mapping(size);
}

bool growing_block::grow_on_heap(std::size_t size) noexcept {
    char* const grown = static_cast<char*>(std::realloc(memory_.get(), size));
    if (grown == nullptr) {
        return false;
    }
    static_cast<void>(memory_.release());
    hold(grown, size, 0);
    return true;
}

bool growing_block::move_to_mapping(std::size_t size) noexcept {
    const std::size_t length = whole_huge_pages(size);
    char* const fresh = map_huge_pages(length);
    if (fresh == nullptr) {
        return false;
    }
    if (size_ > 0) {
        std::memcpy(fresh, memory_.get(), size_);
    }
    hold(fresh, size, length);
    return true;
}

// The kernel moves the pages without copying them.
bool growing_block::grow_mapping(std::size_t size) noexcept {
    const std::size_t length = whole_huge_pages(size);
    void* const grown =
        ::mremap(memory_.get(), memory_.get_deleter().mapped, length, MREMAP_MAYMOVE);
    if (grown == MAP_FAILED) {
        return false;
    }
    static_cast<void>(memory_.release());
    hold(static_cast<char*>(grown), size, length);
    return true;
}

}  // namespace veltrancord
