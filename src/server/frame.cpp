#include "server/frame.h"

#include "leaf/byte_order.h"

namespace veltrancord {

uint32_t frame_length(const char* bytes) {
    return load_le32(reinterpret_cast<const unsigned char*>(bytes));
}

frame_head find_frame_head(std::string_view received) {
    frame_head head;
    const std::size_t start = received.find(start_code);
    if (start == std::string_view::npos) {
        return head;
    }
    head.behind_start_code = start + 1;
    const std::size_t behind = received.size() - head.behind_start_code;
    if (behind == 0) {
        head.state = frame_head_state::length_missing;
    } else if (behind < length_size) {
        head.state = frame_head_state::length_cut;
    } else {
        head.state = frame_head_state::complete;
        head.length = frame_length(received.data() + head.behind_start_code);
    }
    return head;
}

std::array<unsigned char, result_size> code_frame(int32_t result) {
    std::array<unsigned char, result_size> code = {};
    store_le32(code.data(), static_cast<uint32_t>(result));
    return code;
}

}  // namespace veltrancord
