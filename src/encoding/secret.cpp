#include "encoding/secret.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "encoding/base64.h"
#include "leaf/decimal_number.h"

namespace veltrancord {

namespace {

// Values already stored can be read back with this key only: one for a product, for ever.
char g_value_key[] = VELTRANCORD_VALUE_KEY;
constexpr std::size_t value_key_size = sizeof(g_value_key) - 1;
static_assert(value_key_size == 7, "VELTRANCORD_VALUE_KEY must have exactly 7 bytes");

constexpr std::string_view secret_prefix = "enc:";

char change_by_key(char c, std::size_t position) {
    return static_cast<char>(static_cast<unsigned char>(c) ^
                             static_cast<unsigned char>(g_value_key[position % value_key_size]));
}

// Copies text that is no secret, bounded, with its NUL.
void copy_plain(std::string_view text, std::span<char> out) {
    const std::size_t length = std::min(text.size(), out.size() - 1);
    std::copy_n(text.data(), length, out.data());
    out[length] = '\0';
}

}  // namespace

bool use_value_key(std::string_view key) {
    const bool printable =
        std::all_of(key.begin(), key.end(), [](char c) { return c >= '!' && c <= '~'; });
    if (key.size() != value_key_size || !printable) {
        return false;
    }
    key.copy(g_value_key, value_key_size);
    return true;
}

int32_t enc_value_encode(std::string_view plain, std::span<char> out) {
    std::array<unsigned char, 255> changed;
    const std::size_t length = plain.size() % 256;  // the form keeps the length in one byte
    for (std::size_t i = 0; i < length; ++i) {
        changed[i] = static_cast<unsigned char>(change_by_key(plain[i], i));
    }
    std::array<char, 8> head{};
    std::copy(secret_prefix.begin(), secret_prefix.end(), head.begin());
    char* end =
        std::to_chars(head.data() + secret_prefix.size(), head.data() + head.size() - 1, length)
            .ptr;
    *end++ = ':';
    const auto head_size = static_cast<std::size_t>(end - head.data());
    if (out.size() < head_size + base64_encoded_size(length)) {
        return -1;
    }
    std::copy(head.data(), end, out.data());
    return base64_encode(std::span(changed).first(length), out.subspan(head_size));
}

int32_t enc_value_decode(std::string_view stored, std::span<char> out) {
    if (out.empty()) {
        return -1;
    }
    if (!stored.starts_with(secret_prefix)) {
        copy_plain(stored, out);
        return 0;
    }
    stored.remove_prefix(secret_prefix.size());
    const std::size_t colon = stored.find(':');
    if (colon == std::string_view::npos) {
        return 0;
    }
    const int32_t announced = decimal_number(stored.substr(0, colon));
    const std::string_view base64 = stored.substr(colon + 1);
    const base64_decoded decoded = base64_decode(base64, out);

    // The key is applied to what the text carried and to nothing else: changing the zero bytes that
    // stand for padding, or bytes that were never written, would lay the key itself open.
    const std::size_t carried =
        std::min(decoded.written, std::min(base64.find('='), base64.size()) * 3 / 4);
    const std::size_t count = std::min(carried, static_cast<std::size_t>(std::max(announced, 0)));
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = change_by_key(out[i], i);
    }
    if (decoded.code != 0 && decoded.written > 0) {
        out[std::min(decoded.written, out.size() - 1)] = '\0';
    }
    return decoded.code;
}

}  // namespace veltrancord
