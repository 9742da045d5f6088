#include "server/dispatch.h"

#include <cstring>
#include <exception>

#include "leaf/result.h"

namespace veltrancord {

namespace {

// The service throws nothing, but the XML library and the C++ library do when memory runs out. A
// handler that meets this is over: the client is told that the request was too large, what the
// handler had changed so far stays, and the service goes on.
int32_t run_handler(const command_row& row, connection_record& connection,
                    command_argument argument, int32_t index) {
    try {
        return row.handler(connection, argument, index);
    } catch (const std::exception&) {
        connection.reply.close();
        return result_too_large;
    }
}

}  // namespace

int32_t find_command(std::span<const command_row> table, std::string_view name) {
    for (std::size_t row = 0; row < table.size(); ++row) {
        if (table[row].name == name && table[row].handler != nullptr) {
            return static_cast<int32_t>(row);
        }
    }
    return -1;
}

dispatched dispatch(std::span<const command_row> commands, connection_record& connection,
                    std::span<char> payload) {
    char* const name = payload.data();
    const std::size_t colon = std::strcspn(name, ":");  // a NUL ends the text
    if (name[colon] != ':') {
        return {};
    }
    const int32_t row = find_command(commands, {name, colon});
    if (row < 0) {
        return {dispatch_outcome::unknown, result_not_found};
    }
    const command_argument argument{name + colon + 1, payload.size() - colon - 1};
    return {dispatch_outcome::handled,
            run_handler(commands[static_cast<std::size_t>(row)], connection, argument, row)};
}

}  // namespace veltrancord
