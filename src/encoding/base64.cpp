#include "encoding/base64.h"

#include <array>

namespace veltrancord {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static_assert(alphabet.size() == 64);

constexpr char padding = '=';
constexpr int8_t invalid = -1;

// Indexed by the low 7 bits of a character.
constexpr std::array<int8_t, 128> decode_table = []() {
    std::array<int8_t, 128> table{};
    table.fill(invalid);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
    }
    table[static_cast<unsigned char>(padding)] = 0;
    return table;
}();

}  // namespace

int32_t base64_encode(std::span<const unsigned char> in, std::span<char> out) {
    if (out.size() < base64_encoded_size(in.size())) {
        return -1;
    }
    std::size_t length = 0;
    std::size_t i = 0;
    for (; in.size() - i >= 3; i += 3) {
        const uint32_t group = static_cast<uint32_t>(in[i]) << 16U |
                               static_cast<uint32_t>(in[i + 1]) << 8U | in[i + 2];
        out[length++] = alphabet[group >> 18U];
        out[length++] = alphabet[group >> 12U & 63U];
        out[length++] = alphabet[group >> 6U & 63U];
        out[length++] = alphabet[group & 63U];
    }
    const std::size_t left = in.size() - i;
    if (left > 0) {
        const uint32_t first = in[i];
        const uint32_t second = left == 2 ? in[i + 1] : 0U;
        out[length++] = alphabet[first >> 2U];
        out[length++] = alphabet[(first & 3U) << 4U | second >> 4U];
        out[length++] = left == 2 ? alphabet[(second & 15U) << 2U] : padding;
        out[length++] = padding;
    }
    out[length] = '\0';
    return static_cast<int32_t>(length);
}

base64_decoded base64_decode(std::string_view text, std::span<char> out) {
    base64_decoded decoded;
    if (text.empty()) {
        decoded.code = -1;
        return decoded;
    }
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::array<uint32_t, 4> digits{};
        for (std::size_t k = 0; k < digits.size(); ++k) {
            const char c = i + k < text.size() ? text[i + k] : padding;
            const int8_t digit = decode_table[static_cast<unsigned char>(c) & 127U];
            if (digit == invalid) {
                decoded.code = -1;
                return decoded;
            }
            digits[k] = static_cast<uint32_t>(digit);
        }
        if (out.size() - decoded.written < 4) {  // the group and the NUL behind the last one
            decoded.code = -1;
            return decoded;
        }
        const uint32_t group = digits[0] << 18U | digits[1] << 12U | digits[2] << 6U | digits[3];
        out[decoded.written++] = static_cast<char>(group >> 16U & 255U);
        out[decoded.written++] = static_cast<char>(group >> 8U & 255U);
        out[decoded.written++] = static_cast<char>(group & 255U);
    }
    out[decoded.written] = '\0';
    return decoded;
}

}  // namespace veltrancord
