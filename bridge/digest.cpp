#include "digest.h"

#include <openssl/evp.h>

#include <array>

namespace veltrancord::bridge {
namespace {

constexpr std::size_t digest_bytes = 32;
constexpr std::string_view digits = "0123456789abcdef";

}  // namespace

std::string digest_of(std::string_view content) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
    if (EVP_Digest(content.data(), content.size(), bytes.data(), &length, EVP_sha256(), nullptr) !=
            1 ||
        length != digest_bytes) {
        return {};
    }
    constexpr unsigned int half = 4;
    constexpr unsigned int low = 0xF;
    std::string text;
    for (std::size_t index = 0; index < digest_bytes; ++index) {
        text += digits[bytes[index] >> half];
        text += digits[bytes[index] & low];
    }
    return text;
}

}  // namespace veltrancord::bridge
