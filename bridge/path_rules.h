// Which settings may leave the device, and which may be written from outside.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace veltrancord::bridge {

inline constexpr std::size_t max_path = 255;  // as the service takes for a write

// Whether the path is "Document.Element" or deeper, each component of letters, digits, "_" and "-"
// alone: so no wildcard, no escape and no second way to write the same place.
[[nodiscard]] bool is_plain_path(std::string_view path);

// Whether it is never told and never written, whatever a list says: all of Account, and every
// component that is "Password" or "XMLDBCallBack", in any letter case.
[[nodiscard]] bool is_barred(std::string_view path);

// The part before the first dot.
[[nodiscard]] std::string_view document_of(std::string_view path);

// A list of patterns, each a plain path, or one with ".*" behind it (or behind a document's name)
// that stands for everything below.
class path_rules {
  public:
    // Return: false for what is no pattern.
    [[nodiscard]] bool add(std::string_view pattern);

    [[nodiscard]] bool empty() const { return patterns_.empty(); }

    // Whether the path may be used; never where it is barred or not plain.
    [[nodiscard]] bool cover(std::string_view path) const;

    // Whether a pattern is the path itself.
    [[nodiscard]] bool name_exactly(std::string_view path) const;

    // The documents that patterns name, each once, sorted.
    [[nodiscard]] std::vector<std::string> documents() const;

  private:
    std::vector<std::string> patterns_;
};

}  // namespace veltrancord::bridge
