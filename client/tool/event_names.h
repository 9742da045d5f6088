// The names that the notification settings give to the bits of event types.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

class event_names {
  public:
    // Asks the service; where it holds no such settings there are no names. The client's error is
    // left as it was.
    explicit event_names(context& tool);

    // The names of the definitions that share a bit with `type`.
    [[nodiscard]] std::vector<std::string> of(int32_t type) const;

  private:
    struct definition {
        uint32_t bits;
        std::string name;
    };
    std::vector<definition> definitions_;
};

// The bits of a definition: up to 8 hexadecimal digits behind the first 'x'. Return: false for a
// text without 'x' or with another number of characters behind it.
bool parse_event_bits_text(const std::string& text, uint32_t& bits);

}  // namespace veltrancord::tool
