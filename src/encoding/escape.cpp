#include "encoding/escape.h"

namespace veltrancord {

namespace {

constexpr std::string_view escape_digits = "0123456789ABCDEF";

}  // namespace

int32_t hex_digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

char* url_encode(char* out, std::size_t size, std::string_view in) {
    std::size_t i = 0;
    for (std::size_t j = 0; i + 1 < size && j < in.size() && in[j] != '\0'; ++j) {
        const auto byte = static_cast<unsigned char>(in[j]);
        if (url_safe(in[j])) {
            out[i++] = in[j];
            continue;
        }
        if (i + 3 >= size) {
            break;
        }
        out[i++] = '_';
        out[i++] = escape_digits[byte >> 4];
        out[i++] = escape_digits[byte & 15U];
    }
    out[i] = '\0';
    return out;
}

char* url_decode(char* out, std::size_t size, std::string_view in) {
    std::size_t i = 0;
    for (std::size_t j = 0; i + 1 < size && j < in.size() && in[j] != '\0'; ++j) {
        char decoded = in[j];
        if (decoded == '+') {
            decoded = ' ';
        } else if (decoded == '_' && in.size() - j > 2) {
            const int32_t high = hex_digit_value(in[j + 1]);
            const int32_t low = hex_digit_value(in[j + 2]);
            if (high >= 0 && low >= 0) {
                decoded = static_cast<char>(high * 16 + low);
                j += 2;
            }
        }
        out[i++] = decoded;
    }
    out[i] = '\0';
    return out;
}

}  // namespace veltrancord
