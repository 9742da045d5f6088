// The names that the notification settings give to the bits of event types.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

class event_names {
  public:
    // Asks the service; where it holds no such settings there are no names. The client's error is
    // left as it was.
    explicit event_names(context& tool);

    // What the question gave: below 0 where there are no names.
    [[nodiscard]] int32_t result() const { return result_; }

    // The names of the definitions that share a bit with `type`.
    [[nodiscard]] std::vector<std::string> of(int32_t type) const;

    // All names, joined by commas.
    [[nodiscard]] std::string all() const;

    // The bits that a name stands for, or several joined by commas. Return: false with the first
    // one that there is not in `unknown`.
    bool bits_of(std::string_view text, int32_t& bits, std::string& unknown) const;

  private:
    struct definition {
        uint32_t bits;
        std::string name;
    };
    [[nodiscard]] uint32_t bits_of_name(std::string_view name) const;
    [[nodiscard]] std::string_view first_name(std::string_view text) const;

    int32_t result_ = 0;
    std::vector<definition> definitions_;
};

// The bits of a type that are written as "log list" does: a number, or names joined by commas.
//
// Return: exit_done, or a status after a message.
int take_event_bits(context& tool, const std::string& text, int32_t& bits);

// The bits of a definition: up to 8 hexadecimal digits behind the first 'x'. Return: false for a
// text without 'x' or with another number of characters behind it.
bool parse_event_bits_text(const std::string& text, uint32_t& bits);

}  // namespace veltrancord::tool
