// Sets of characters, and the regular expression for one character of a set, byte by byte of UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace veltrancord::schema {

inline constexpr uint32_t last_character = 0x10FFFF;

class character_set {
  public:
    // Adds all characters from `first` to `last`, both included.
    void add(uint32_t first, uint32_t last);
    void add(const character_set& other);

    // All characters but these (U+0000 excepted, which no text holds).
    [[nodiscard]] character_set inverted() const;

    [[nodiscard]] character_set without(const character_set& other) const;

    [[nodiscard]] bool empty() const { return ranges_.empty(); }

    // An extended regular expression that matches one character of the set, as a unit that "*" may
    // follow. The set is not empty.
    [[nodiscard]] std::string expression() const;

  private:
    std::vector<std::pair<uint32_t, uint32_t>> ranges_;  // rising, neither overlapping nor touching
};

}  // namespace veltrancord::schema
