#include "access/owned_text.h"

#include <string.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace veltrancord {

void wiping_deleter::operator()(char* bytes) const noexcept {
    explicit_bzero(bytes, length);
    delete[] bytes;
}

bool owned_text::assign(std::string_view text) noexcept {
    // An empty text takes a byte all the same: a null pointer means absent.
    char* const bytes = new (std::nothrow) char[text.size() + 1];
    if (bytes == nullptr) {
        return false;
    }
    if (!text.empty()) {
        std::memcpy(bytes, text.data(), text.size());
    }
    bytes_ = std::unique_ptr<char[], wiping_deleter>(bytes, wiping_deleter{text.size()});
    return true;
}

bool equals_in_constant_time(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    uint64_t difference = 0;
    std::size_t at = 0;
    for (; at + sizeof(uint64_t) <= a.size(); at += sizeof(uint64_t)) {
        uint64_t left = 0;
        uint64_t right = 0;
        std::memcpy(&left, a.data() + at, sizeof left);
        std::memcpy(&right, b.data() + at, sizeof right);
        difference |= left ^ right;
    }
    for (; at < a.size(); ++at) {
        difference |= static_cast<unsigned char>(a[at] ^ b[at]);
    }
    return difference == 0;
}

}  // namespace veltrancord
