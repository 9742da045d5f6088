// The escape coding: what was encoded decodes to itself, and a small output is the beginning of a
// large one.
#include <string>

#include "encoding/escape.h"
#include "fuzz_target.h"

namespace veltrancord::fuzz {
namespace {

using coding = char*(char* out, std::size_t size, std::string_view in);

std::string coded(coding* code, std::size_t size, std::string_view in) {
    std::string out(size, 'x');  // exactly so large: the sanitizer guards its end
    require(code(out.data(), size, in) == out.data(), "what a coding returns");
    const std::size_t end = out.find('\0');
    require(end != std::string::npos, "the NUL behind a coded text");
    return out.substr(0, end);
}

bool is_safe(char c) {
    return std::string_view("-.*").find(c) != std::string_view::npos || (c >= '0' && c <= '9') ||
           (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

void check_form(std::string_view encoded) {
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] == '_') {
            constexpr std::string_view digits = "0123456789ABCDEF";
            require(i + 2 < encoded.size() && digits.find(encoded[i + 1]) != digits.npos &&
                        digits.find(encoded[i + 2]) != digits.npos,
                    "an escape is whole");
            i += 2;
        } else {
            require(is_safe(encoded[i]), "a character that needs an escape");
        }
    }
}

}  // namespace

void try_input(input_reader& input) {
    const std::size_t small = input.byte() + std::size_t{1};
    const std::string_view text = input.rest();

    const std::string encoded = coded(url_encode, text.size() * 3 + 2, text);
    check_form(encoded);
    require(coded(url_decode, encoded.size() + 1, encoded) == up_to_nul(text), "back again");
    const std::string encoded_small = coded(url_encode, small, text);
    check_form(encoded_small);
    require(encoded.starts_with(encoded_small), "a small encoding");

    const std::string decoded = coded(url_decode, text.size() + 1, text);
    const std::string decoded_small = coded(url_decode, small, text);
    // A decoded "_00" ends the text early, in both.
    require(decoded.starts_with(decoded_small), "a small decoding");
}

}  // namespace veltrancord::fuzz
