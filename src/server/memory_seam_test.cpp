#include "support/memory_seam.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

void note_size(std::size_t size) {
    std::size_t largest = veltrancord::g_largest_allocation;
    while (size > largest &&
           !veltrancord::g_largest_allocation.compare_exchange_weak(largest, size)) {
    }
}

bool takes_a_failure() {
    int failing = veltrancord::g_failing_allocations;
    while (failing > 0 &&
           !veltrancord::g_failing_allocations.compare_exchange_weak(failing, failing - 1)) {
    }
    return failing > 0;
}

}  // namespace

// Those that the standard library builds the others on.
void* operator new(std::size_t size) {
    note_size(size);
    void* const block = takes_a_failure() ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
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
