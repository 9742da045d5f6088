// The frames of both directions. A request is the start code "?", the length of the payload, and
// the payload; a reply is the result and, where there is one, its text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veltrancord {

inline constexpr char start_code = '?';
inline constexpr std::size_t length_size = 4;  // bytes of the little-endian length
inline constexpr std::size_t result_size = 4;  // bytes of the little-endian result

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

// A reply without a text. One with a text is put together where the text is
// (reply_text::frame).
[[nodiscard]] std::array<unsigned char, result_size> code_frame(int32_t result);

}  // namespace veltrancord
