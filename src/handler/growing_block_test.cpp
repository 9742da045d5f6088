#include "handler/growing_block.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <utility>

namespace veltrancord {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

// Kilobytes of this process's address space.
long address_space() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "VmSize:") {
    }
    long kilobytes = 0;
    status >> kilobytes;
    return kilobytes;
}

// Fills the bytes with what depends on where they are.
void fill(growing_block& block, std::size_t from) {
    for (std::size_t at = from; at < block.size(); ++at) {
        block.get()[at] = static_cast<char>(at * 31 >> 7U);
    }
}

bool is_filled(const growing_block& block, std::size_t size) {
    for (std::size_t at = 0; at < size; ++at) {
        if (block.get()[at] != static_cast<char>(at * 31 >> 7U)) {
            return false;
        }
    }
    return true;
}

TEST(GrowingBlock, IsEmptyAtFirst) {
    const growing_block block;
    EXPECT_EQ(block.get(), nullptr);
    EXPECT_EQ(block.size(), 0U);
}

TEST(GrowingBlock, KeepsItsContentFromTheHeapIntoAMappingAndOn) {
    growing_block block;
    std::size_t filled = 0;
    for (const std::size_t size : {std::size_t{10}, std::size_t{5000}, mebibyte, 2 * mebibyte,
                                   2 * mebibyte + 1, 5 * mebibyte, 9 * mebibyte}) {
        ASSERT_TRUE(block.grow(size, 0));
        EXPECT_EQ(block.size(), size);
        EXPECT_TRUE(is_filled(block, filled)) << size;
        fill(block, filled);
        filled = size;
    }
    EXPECT_TRUE(is_filled(block, filled));
}

TEST(GrowingBlock, BecomesAsLongAsForeseenOnlyAsAMapping) {
    growing_block block;
    ASSERT_TRUE(block.grow(growing_block::largest_on_heap, 30 * mebibyte));
    EXPECT_EQ(block.size(), growing_block::largest_on_heap);
    ASSERT_TRUE(block.grow(3 * mebibyte, 30 * mebibyte));
    EXPECT_EQ(block.size(), 30 * mebibyte);
    const char* const before = block.get();
    ASSERT_TRUE(block.grow(30 * mebibyte, 30 * mebibyte));
    EXPECT_EQ(block.get(), before);
    growing_block other;
    ASSERT_TRUE(other.grow(3 * mebibyte, 3000 * mebibyte));
    EXPECT_LE(other.size(), 64 * mebibyte);
}

TEST(GrowingBlock, GivesItsMappingBack) {
    const long before = address_space();
    {
        growing_block block;
        ASSERT_TRUE(block.grow(40 * mebibyte, 0));
        fill(block, 0);
        ASSERT_TRUE(block.grow(41 * mebibyte, 0));
        EXPECT_GE(address_space(), before + 41 * 1024);
        block = growing_block();
        EXPECT_LT(address_space(), before + 1024);
        ASSERT_TRUE(block.grow(40 * mebibyte, 0));
    }
    EXPECT_LT(address_space(), before + 1024);
}

TEST(GrowingBlock, MovesAndLeavesAnEmptyOne) {
    for (const std::size_t size : {std::size_t{100}, 3 * mebibyte}) {
        growing_block first;
        ASSERT_TRUE(first.grow(size, 0));
        fill(first, 0);
        growing_block second(std::move(first));
        EXPECT_EQ(first.get(), nullptr);  // NOLINT(bugprone-use-after-move): empty is the promise
        EXPECT_EQ(first.size(), 0U);
        EXPECT_TRUE(is_filled(second, size));
        first = std::move(second);
        EXPECT_EQ(first.size(), size);
        ASSERT_TRUE(first.grow(size + 1, 0));
        EXPECT_TRUE(is_filled(first, size));
    }
}

TEST(GrowingBlock, StaysAsItWasWhenMemoryCannotBeHad) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer has the whole address space";
#else
    growing_block small;
    ASSERT_TRUE(small.grow(1000, 0));
    fill(small, 0);
    growing_block large;
    ASSERT_TRUE(large.grow(3 * mebibyte, 0));
    fill(large, 0);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    const rlimit limited{static_cast<rlim_t>(address_space()) * 1024 + 8 * mebibyte,
                         before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &limited), 0);
    const bool small_grown = small.grow(40 * mebibyte, 40 * mebibyte);
    const bool large_grown = large.grow(40 * mebibyte, 40 * mebibyte);
    EXPECT_FALSE(small_grown);
    EXPECT_FALSE(large_grown);
    EXPECT_EQ(small.size(), 1000U);
    EXPECT_EQ(large.size(), 3 * mebibyte);
    EXPECT_TRUE(is_filled(small, 1000));
    EXPECT_TRUE(is_filled(large, 3 * mebibyte));
    // What was foreseen cannot be had, what is needed can.
    EXPECT_TRUE(small.grow(3 * mebibyte, 40 * mebibyte));
    EXPECT_EQ(::setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(small.size(), 3 * mebibyte);
    EXPECT_TRUE(is_filled(small, 1000));
#endif
}

}  // namespace
}  // namespace veltrancord
