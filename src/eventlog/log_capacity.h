// How many entries the event log may hold: a rule of the size of the file system that keeps it.
#pragma once

#include <algorithm>
#include <cstdint>

namespace veltrancord {

// The size of a file system as the capacity rule sees it: the product of block size and number of
// blocks in 32 bits without a sign, then taken as signed. From 2 GiB on it is negative or has
// wrapped round.
constexpr int32_t log_file_system_size(uint32_t block_size, uint32_t block_count) {
    return static_cast<int32_t>(block_size * block_count);
}

inline constexpr int32_t most_log_entries = 1000;

// 128 KiB are left to others, and a quarter of the rest is the log's, with 64 bytes for each entry;
// at most most_log_entries. Not bounded below: small and wrapped sizes give zero or a negative
// number, which the ring understands (see log_ring.cpp).
constexpr int32_t log_capacity_for_size(int32_t size) {
    // In 64 bits, since the difference may lie below what 32 bits hold.
    const int64_t quarter = (int64_t{size} - 131072) / 4;
    // Rounded down, below zero too.
    const int64_t entries = quarter / 64 - (quarter % 64 < 0 ? 1 : 0);
    return static_cast<int32_t>(std::min<int64_t>(entries, most_log_entries));
}

// Asks for the size of the file system that holds `directory`.
//
// Return: 0, or the negative result of statfs with errno set; `size` is then unchanged.
[[nodiscard]] int32_t read_log_file_system_size(const char* directory, int32_t& size);

}  // namespace veltrancord
