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

// A dotted path put together from texts and numbers: SettingPath("Account.User", 7, ".Level").
class SettingPath {
  public:
    template <class... Pieces>
    explicit SettingPath(const Pieces&... pieces) noexcept {
        (Append(pieces), ...);
    }

    [[nodiscard]] std::string_view View() const noexcept { return {text_.data(), length_}; }

  private:
    void Append(std::string_view piece) noexcept {
        const std::size_t count = piece.copy(text_.data() + length_, text_.size() - length_);
        length_ += count;
    }
    void Append(int32_t number) noexcept {
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
[[nodiscard]] std::string_view SettingText(std::string_view text);

// Looks up the text of an element, or the value of the attribute that the path's last component
// names. No secret is ever read here: the text lies in the document and not in a decoded copy.
//
// Return: the text, at most max_setting_text bytes of it, valid until the document changes. An
// empty text is a missing setting: what an operator has emptied counts as taken away.
[[nodiscard]] std::string_view ReadSetting(const SettingPath& path);
[[nodiscard]] std::string_view ReadAttributeSetting(const SettingPath& path);

// Return: the number at `path`, read as decimal_number() does, or `missing` when there is none.
[[nodiscard]] int32_t ReadNumberSetting(std::string_view path, int32_t missing);

}  // namespace veltrancord
