#include "server/dispatch.h"

#include <cstring>
#include <exception>
#include <span>
#include <string_view>

#include "leaf/result.h"
#include "leaf/termination.h"
#include "server/request_server.h"
#include "server/sender.h"
#include "service/commands.h"

namespace veltrancord {

namespace {

// The service throws nothing, but the XML library and the C++ library do when memory runs out. A
// handler that meets this is over: the client is told that the request was too large, what the
// handler had changed so far stays, and the service goes on.
int32_t run_handler(const command_row& row, connection& client, command_argument argument,
                    int32_t index) {
    try {
        return row.handler(client, argument, index);
    } catch (const std::exception&) {
        client.reply.close();
        return result_too_large;
    }
}

// What a follow-up step could not do for want of memory is tried again after the next command,
// since the marks that called for it are still set.
void run_follow_up(void (*follow_up)()) {
    try {
        follow_up();
    } catch (const std::exception&) {
        return;
    }
}

// Where the command's name ends: at the first ":" or NUL. A name is short, so a call of the C
// library would cost more than the loop; the payload of one who sends no ":" may not be.
const char* end_of_name(const char* payload) {
    constexpr int usual = 32;
    for (int count = 0; count < usual; ++count, ++payload) {
        if (*payload == ':' || *payload == '\0') {
            return payload;
        }
    }
    return payload + std::strcspn(payload, ":");
}

}  // namespace

void dispatch(connection* client, std::span<char> payload) {
    const request_server& server = *client->server;
    const char* const end = end_of_name(payload.data());
    if (*end != ':') {
        release_item(client);
        return;
    }
    const auto colon = static_cast<std::size_t>(end - payload.data());
    const int32_t row = find_command(server.commands, {payload.data(), colon});
    if (row < 0) {
        client->result = result_not_found;
        write_code(client);
        return;
    }
    const command_argument argument{payload.data() + colon + 1, payload.size() - colon - 1};
    client->result =
        run_handler(server.commands[static_cast<std::size_t>(row)], *client, argument, row);
    const bool queued = queue_reply(*client) == 0;
    if (!queued) {
        release_item(client);
    }
    // The reply goes out only now: a client that holds it finds its change saved. A process that is
    // being terminated saves nothing any more, so it reports no success either.
    for (void (*const follow_up)() : server.follow_ups) {
        run_follow_up(follow_up);
    }
    if (!queued) {
        return;
    }
    if (client->result >= 0 && g_terminating.load()) {
        release_item(client);
    } else {
        write_reply(client);
    }
}

}  // namespace veltrancord
