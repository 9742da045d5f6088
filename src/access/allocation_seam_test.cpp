#include "support/allocation_seam.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace veltrancord {
namespace {

int g_until_failure = 0;  // 0: nothing fails, or it has failed
bool g_throwing_fail = false;

const void* g_watched = nullptr;
std::size_t g_watched_size = 0;
std::array<char, 256> g_watched_content;
bool g_watched_freed = false;

void* allocate(std::size_t size) {
    void* const block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr) {
        std::abort();
    }
    return block;
}

void* allocate_or_fail(std::size_t size) {
    if (g_until_failure > 0 && --g_until_failure == 0) {
        return nullptr;
    }
    return allocate(size);
}

void* allocate_or_throw(std::size_t size) {
    if (g_throwing_fail) {
        throw std::bad_alloc();
    }
    return allocate(size);
}

void release(void* block) {
    if (block != nullptr && block == g_watched) {
        std::memcpy(g_watched_content.data(), block, g_watched_size);
        g_watched_freed = true;
        g_watched = nullptr;
    }
    std::free(block);
}

}  // namespace

failing_allocation::failing_allocation(int number) {
    g_until_failure = number;
}

failing_allocation::~failing_allocation() {
    g_until_failure = 0;
}

bool failing_allocation::reached() {
    return g_until_failure == 0;
}

throwing_allocations_fail::throwing_allocations_fail() {
    g_throwing_fail = true;
}

throwing_allocations_fail::~throwing_allocations_fail() {
    g_throwing_fail = false;
}

freed_block::freed_block(const void* start, std::size_t size) {
    g_watched = start;
    g_watched_size = size < g_watched_content.size() ? size : g_watched_content.size();
    g_watched_freed = false;
}

freed_block::~freed_block() {
    g_watched = nullptr;
}

bool freed_block::freed() {
    return g_watched_freed;
}

std::string freed_block::content() {
    return {g_watched_content.data(), g_watched_size};
}

}  // namespace veltrancord

// All of them, so that whatever one allocates another can free.
void* operator new(std::size_t size) {
    return veltrancord::allocate_or_throw(size);
}
void* operator new[](std::size_t size) {
    return veltrancord::allocate_or_throw(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return veltrancord::allocate_or_fail(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return veltrancord::allocate_or_fail(size);
}
void operator delete(void* block) noexcept {
    veltrancord::release(block);
}
void operator delete[](void* block) noexcept {
    veltrancord::release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    veltrancord::release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    veltrancord::release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    veltrancord::release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    veltrancord::release(block);
}

namespace veltrancord {
namespace {

TEST(AllocationSeam, FailsTheNthAndNoOther) {
    const failing_allocation second(2);
    const std::unique_ptr<int> first(new (std::nothrow) int(1));
    EXPECT_FALSE(failing_allocation::reached());
    const std::unique_ptr<int> none(new (std::nothrow) int(2));
    const std::unique_ptr<int> third(new (std::nothrow) int(3));
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(none, nullptr);
    EXPECT_NE(third, nullptr);
    EXPECT_TRUE(failing_allocation::reached());
}

}  // namespace
}  // namespace veltrancord
