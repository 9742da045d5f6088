// Settings of the configuration as permissions and accounts take them.
#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace veltrancord {

// Longer texts are cut to this many bytes, on both sides of every comparison between settings.
inline constexpr std::size_t max_setting_text = 255;

// A dotted path put together from texts and numbers: setting_path("Account.User", 7, ".Level").
class setting_path {
  public:
    template <class... Pieces>
    explicit setting_path(const Pieces&... pieces) noexcept {
        (append(pieces), ...);
    }

    [[nodiscard]] std::string_view view() const noexcept { return {text_.data(), length_}; }

  private:
    void append(std::string_view piece) noexcept {
        const std::size_t count = piece.copy(text_.data() + length_, text_.size() - length_);
        length_ += count;
    }
    void append(int32_t number) noexcept {
        char* const end = text_.data() + text_.size();
        const auto written = std::to_chars(text_.data() + length_, end, number);
        length_ = static_cast<std::size_t>(written.ptr - text_.data());
    }

    // The longest path holds one setting's text and some 40 bytes around it.
    std::array<char, max_setting_text + 65> text_;
    std::size_t length_ = 0;
};

// Return: what of an element's text or an attribute's value counts: the bytes up to a NUL, and at
// most max_setting_text of them.
[[nodiscard]] std::string_view setting_text(std::string_view text);

// Looks up the text of an element, or the value of the attribute that the path's last component
// names. No secret is ever read here: the text lies in the document and not in a decoded copy.
//
// Return: the text, at most max_setting_text bytes of it, valid until the document changes. An
// empty text is a missing setting: what an operator has emptied counts as taken away.
[[nodiscard]] std::string_view read_setting(const setting_path& path);
[[nodiscard]] std::string_view read_attribute_setting(const setting_path& path);

// Return: the number at `path`, read as decimal_number() does, or `missing` when there is none.
[[nodiscard]] int32_t read_number_setting(std::string_view path, int32_t missing);

}  // namespace veltrancord
