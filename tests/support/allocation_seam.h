// For tests: lets an allocation fail, and shows what a block held when it was freed.
#pragma once

#include <cstddef>
#include <string>

namespace veltrancord {

// While it lives, the allocation of that number (from 1) among those that report failure by a null
// pointer fails, and no other.
class failing_allocation {
  public:
    explicit failing_allocation(int number);
    failing_allocation(const failing_allocation&) = delete;
    failing_allocation& operator=(const failing_allocation&) = delete;
    ~failing_allocation();

    // Whether there were as many allocations as that.
    [[nodiscard]] static bool reached();
};

// While it lives, those that report failure by an exception fail.
class throwing_allocations_fail {
  public:
    throwing_allocations_fail();
    throwing_allocations_fail(const throwing_allocations_fail&) = delete;
    throwing_allocations_fail& operator=(const throwing_allocations_fail&) = delete;
    ~throwing_allocations_fail();
};

// While it lives, the block that begins at `start` is copied just before it is freed.
class freed_block {
  public:
    freed_block(const void* start, std::size_t size);
    freed_block(const freed_block&) = delete;
    freed_block& operator=(const freed_block&) = delete;
    ~freed_block();

    [[nodiscard]] static bool freed();
    [[nodiscard]] static std::string content();
};

}  // namespace veltrancord
