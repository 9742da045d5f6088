// A block of memory that grows with what is written into it.
//
// A small one lies on the heap, a larger one in a mapping of its own: fresh pages come from the
// kernel one by one as they are written to, which takes as much time as half of the listing that
// fills them. So a mapping asks for huge pages, where the kernel has them, and begins with as much
// address space as it may need, which costs nothing until it is written to. Freeing it gives all of
// it back at once.
//
// Nothing here throws or is printed.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace veltrancord {

class growing_block {
  public:
    // A mebibyte, and what its owner may put in front of it. Whoever doubles a block has filled one
    // this long when it gets a mapping, so that its first huge page costs no more time than the
    // small ones that it stands for.
    static constexpr std::size_t largest_on_heap = (std::size_t{1} << 20) + 4096;

    // The longest that can be asked for: what is added to it on the way cannot wrap around.
    static constexpr std::size_t largest = ~std::size_t{0} / 2;

    growing_block() noexcept : memory_(nullptr, unmapper{0}) {}
    growing_block(growing_block&& other) noexcept
        : memory_(std::move(other.memory_)), size_(std::exchange(other.size_, 0)) {}
    growing_block& operator=(growing_block&& other) noexcept {
        memory_ = std::move(other.memory_);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }
    growing_block(const growing_block&) = delete;
    growing_block& operator=(const growing_block&) = delete;
    ~growing_block() = default;

    // Makes the block at least `size` bytes long, at most `largest`, and keeps its content; new
    // bytes are undefined. A mapping becomes up to `foreseen` bytes long at once.
    //
    // Return: false when memory could not be had; the block is then as it was.
    [[nodiscard]] bool grow(std::size_t size, std::size_t foreseen) noexcept;

    // Frees the memory: the block is empty then.
    void reset() noexcept {
        if (memory_) {
            hold(nullptr, 0, 0);
        }
    }

    // The memory, null for an empty block; it may move when the block grows.
    [[nodiscard]] char* get() const noexcept { return memory_.get(); }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

  private:
    // Frees `mapped` bytes of a mapping, or with 0 a block of the heap.
    struct unmapper {
        explicit unmapper(std::size_t length) noexcept : mapped(length) {}
        void operator()(char* memory) const noexcept;

        std::size_t mapped;
    };

    void hold(char* memory, std::size_t size, std::size_t mapped) noexcept;
    [[nodiscard]] bool grow_on_heap(std::size_t size) noexcept;
    [[nodiscard]] bool grow_mapping(std::size_t size) noexcept;
    [[nodiscard]] bool move_to_mapping(std::size_t size) noexcept;

    std::unique_ptr<char, unmapper> memory_;
    std::size_t size_ = 0;
};

}  // namespace veltrancord
