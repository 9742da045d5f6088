#include "access/owned_text.h"

#include <string.h>

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

}  // namespace veltrancord
