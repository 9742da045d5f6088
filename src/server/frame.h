// The head of a request frame: the start code "?" and the length of the payload behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veltrancord {

inline constexpr char start_code = '?';
inline constexpr std::size_t length_size = 4;  // bytes of the little-endian length

enum class frame_head_state {
    no_start_code,   // nothing but bytes to skip
    length_missing,  // the start code is the last byte
    length_cut,      // 1 to 3 bytes of the length are there
    complete,
};

struct frame_head {
    frame_head_state state = frame_head_state::no_start_code;
    std::size_t behind_start_code = 0;  // index of the first byte of the length
    uint32_t length = 0;                // of the payload; when complete
};

// Looks for the first start code in `received`; whatever stands before it does not count.
[[nodiscard]] frame_head find_frame_head(std::string_view received);

// The length in 4 little-endian bytes at `bytes`.
[[nodiscard]] uint32_t frame_length(const char* bytes);

}  // namespace veltrancord
