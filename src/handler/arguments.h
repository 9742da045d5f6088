// Command arguments made of several fields, with "&" between them.
#pragma once

#include <optional>
#include <string_view>

namespace veltrancord {

struct argument_fields {
    std::string_view first;
    std::optional<std::string_view> rest;  // none when the text holds no "&"
};

// Cuts `text` at its first "&"; further ones stay in the rest, which may be empty.
[[nodiscard]] constexpr argument_fields cut_at_ampersand(std::string_view text) noexcept {
    const auto at = text.find('&');
    if (at == std::string_view::npos) {
        return {text, std::nullopt};
    }
    return {text.substr(0, at), text.substr(at + 1)};
}

}  // namespace veltrancord
