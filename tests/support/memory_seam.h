// For tests: memory that cannot be had, and how much was asked for at a time. A test program that
// uses it has operators of its own that go by these, in each of its threads.
#pragma once

#include <atomic>
#include <climits>
#include <cstddef>

namespace veltrancord {

inline std::atomic<int> g_failing_allocations = 0;  // so many from now on fail
inline std::atomic<std::size_t> g_largest_allocation = 0;

// While it lives, every operator new of the program fails.
class no_memory_left {
  public:
    no_memory_left() noexcept { g_failing_allocations = INT_MAX; }
    no_memory_left(const no_memory_left&) = delete;
    no_memory_left& operator=(const no_memory_left&) = delete;
    ~no_memory_left() { g_failing_allocations = 0; }
};

}  // namespace veltrancord
