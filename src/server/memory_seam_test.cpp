#include "support/memory_seam.h"

#include <algorithm>
#include <cstdlib>
#include <new>

// Those that the standard library builds the others on.
void* operator new(std::size_t size) {
    veltrancord::g_largest_allocation = std::max(veltrancord::g_largest_allocation, size);
    const bool fails = veltrancord::g_failing_allocations > 0;
    veltrancord::g_failing_allocations -= fails ? 1 : 0;
    void* const block = fails ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}
