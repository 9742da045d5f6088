#include "server/dispatch.h"

#include <cstring>
#include <exception>

#include "leaf/result.h"

namespace veltrancord {

namespace {

// The service throws nothing, but the XML library and the C++ library do when memory runs out. A
// handler that meets this is over: the client is told that the request was too large, what the
// handler had changed so far stays, and the service goes on.
int32_t run_handler(const gated_command& command, connection_record& connection,
                    const gated_visit* visit) {
    try {
        return visit != nullptr ? visit->gate->run(visit->visitor, command, connection)
                                : command.handler(connection, command.argument, command.row);
    } catch (const std::exception&) {
        connection.reply.close();
        return result_too_large;
    }
}

}  // namespace

command_index::command_index(std::span<const command_row> table) : table_(table) {
    for (std::size_t row = 0; row < table.size(); ++row) {
        if (table[row].handler != nullptr) {
            numbers_.emplace(table[row].name, static_cast<int32_t>(row));  // the first one stays
        }
    }
}

int32_t command_index::find(std::string_view name) const {
    const auto found = numbers_.find(name);
    return found == numbers_.end() ? -1 : found->second;
}

dispatched dispatch(const command_index& commands, connection_record& connection,
                    std::span<char> payload, const gated_visit* visit) {
    char* const name = payload.data();
    const std::size_t colon = std::strcspn(name, ":");  // a NUL ends the text
    if (name[colon] != ':') {
        return {};
    }
    const int32_t row = commands.find({name, colon});
    if (row < 0) {
        return {dispatch_outcome::unknown, result_not_found};
    }
    const command_row& found = commands.row(row);
    const gated_command command{
        found.name, found.handler, row, {name + colon + 1, payload.size() - colon - 1}};
    return {dispatch_outcome::handled, run_handler(command, connection, visit)};
}

}  // namespace veltrancord
