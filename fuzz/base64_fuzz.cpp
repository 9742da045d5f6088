// Base64: back and forth, and decoding against a decoder of the simplest kind.
#include <string>
#include <vector>

#include "encoding/base64.h"
#include "fuzz_target.h"

namespace veltrancord::fuzz {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Return: false at an invalid character; `out` then holds the groups before it.
bool simple_decode(std::string text, std::string& out) {
    bool valid = !text.empty();
    while (text.size() % 4 != 0) {
        text += '=';
    }
    for (std::size_t at = 0; valid && at < text.size(); at += 4) {
        uint32_t group = 0;
        for (std::size_t i = at; i < at + 4; ++i) {
            const char c = static_cast<char>(text[i] & 0x7F);
            const std::size_t place = c == '=' ? 0 : alphabet.find(c);
            valid = valid && place != std::string_view::npos;
            group = group << 6 | static_cast<uint32_t>(place & 63);
        }
        if (valid) {
            out += static_cast<char>(group >> 16 & 0xFF);
            out += static_cast<char>(group >> 8 & 0xFF);
            out += static_cast<char>(group & 0xFF);
        }
    }
    return valid;
}

void check_round_trip(std::string_view bytes) {
    const std::size_t size = bytes.size();
    std::vector<char> encoded(base64_encoded_size(size));
    const int32_t length =
        base64_encode({reinterpret_cast<const uint8_t*>(bytes.data()), size}, encoded);
    require(length == static_cast<int32_t>(encoded.size() - 1), "the encoded length");
    require(encoded.back() == '\0', "the NUL behind an encoded text");
    if (size == 0) {
        return;
    }
    std::vector<char> decoded(size + 4);
    const base64_decoded result =
        base64_decode({encoded.data(), static_cast<std::size_t>(length)}, decoded);
    require(result.code == 0 && result.written == (size + 2) / 3 * 3, "decoding what was encoded");
    const std::string expected = std::string(bytes) + std::string(2, '\0');
    require(std::string_view(decoded.data(), result.written) == expected.substr(0, result.written),
            "back again");
}

void check_decoding(std::string_view text, std::size_t room) {
    std::string expected;
    const bool valid = simple_decode(std::string(text), expected);
    std::vector<char> out(room);
    const base64_decoded result = base64_decode(text, out);
    require(result.written <= room && result.written <= expected.size(), "decoded bytes");
    require(expected.starts_with(std::string_view(out.data(), result.written)), "what is decoded");
    if (room > expected.size()) {
        require(result.code == (valid ? 0 : -1) && result.written == expected.size(),
                "decoding with room");
        require(!valid || out[result.written] == '\0', "the NUL behind decoded bytes");
    } else {
        require(result.code == -1, "decoding without room");
    }
}

}  // namespace

void try_input(input_reader& input) {
    check_round_trip(input.rest());
    if (!input.empty()) {
        const uint8_t room = input.byte();
        const std::string_view text = up_to_nul(input.rest());
        check_decoding(text, text.size() + 8);
        check_decoding(text, room);
    }
}

}  // namespace veltrancord::fuzz
