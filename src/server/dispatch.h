// The command table, and from a complete request to its command's handler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <unordered_map>

#include "handler/gate.h"
#include "handler/handler.h"

namespace veltrancord {

struct command_row {
    std::string_view name;
    command_handler* handler = nullptr;  // null: the command is answered as an unknown one
    std::string_view description;        // for readers; the server does not use it
};

// The rows of a command table, which must outlive it, found by name. Constructing one throws
// std::bad_alloc; looking up throws nothing.
class command_index {
  public:
    command_index() = default;
    explicit command_index(std::span<const command_row> table);

    // The first row of that name, compared exactly, that has a handler.
    //
    // Return: the row's number, or -1.
    [[nodiscard]] int32_t find(std::string_view name) const;

    [[nodiscard]] const command_row& row(int32_t number) const {
        return table_[static_cast<std::size_t>(number)];
    }

  private:
    std::span<const command_row> table_;
    std::unordered_map<std::string_view, int32_t> numbers_;
};

enum class dispatch_outcome {
    no_name,  // the payload holds no ":"; nothing was done
    unknown,  // there is no such command
    handled,  // its handler has run
};

struct dispatched {
    dispatch_outcome outcome = dispatch_outcome::no_name;
    int32_t result = 0;  // the handler's; -4 of an unknown command
};

// The gate that a request has to pass, and who brings it.
struct gated_visit {
    command_gate* gate = nullptr;  // not null
    gate_visitor visitor;
};

// Finds the command by the name before the payload's first ":" and runs its handler with what
// stands behind it, through the gate where there is one. Behind the payload there must be a NUL; it
// is the handler's to change. A handler that ends with an exception, for want of memory, counts as
// one that returned -8 and no text.
[[nodiscard]] dispatched dispatch(const command_index& commands, connection_record& connection,
                                  std::span<char> payload, const gated_visit* visit = nullptr);

}  // namespace veltrancord
