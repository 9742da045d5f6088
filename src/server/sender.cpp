#include "server/sender.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "leaf/byte_order.h"
#include "leaf/message.h"
#include "server/event_loop.h"
#include "server/request_server.h"

namespace veltrancord {

namespace {

// Attempts in one call, so that a client that reads as fast as it is sent to cannot keep the others
// waiting for ever.
constexpr int most_writes = 5;

bool has_body(const connection& client) {
    return client.result >= 1 && client.reply.is_open();
}

ssize_t send_some(const connection& client) {
    return ::send(client.fd.get(), client.frame.data() + client.written,
                  client.frame.size() - client.written, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void on_writable(void* argument) {
    write_reply(static_cast<connection*>(argument));
}

void await_writable(connection* client) {
    if (client->write_event != nullptr) {
        return;
    }
    // The client may take its time: it keeps no more than what it has still to be sent.
    client->payload_block.reset();
    if (client->reply.drop_sent(client->written)) {
        client->frame = client->reply.view();
        client->written = 0;
    }
    client->write_event = client->server->loop.add_descriptor(
        client->fd.get(), watch_direction::write, on_writable, client);
    if (client->write_event == nullptr) {
        release_item(client);
    }
}

void write_body(connection* client) {
    for (int turn = 0; turn < most_writes && client->written < client->frame.size(); ++turn) {
        const ssize_t count = send_some(*client);
        if (count >= 0) {
            client->written += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            print_error("write xml result error : %s\n", std::strerror(errno));
            release_item(client);
            return;
        }
    }
    if (client->written == client->frame.size()) {
        release_item(client);
    } else {
        await_writable(client);
    }
}

}  // namespace

int32_t queue_reply(connection& client) {
    client.written = 0;
    client.frame = {};
    if (!has_body(client)) {
        return 0;
    }
    const auto length = static_cast<std::size_t>(client.result);
    client.reply.truncate(length);
    const std::size_t missing = length - client.reply.size();
    if (missing > 0 && client.reply.extend(missing).empty()) {
        print_error("allocate pBuf == NULL !!\n");
        return -1;
    }
    client.frame = client.reply.frame(client.result);
    return 0;
}

void write_reply(connection* client) {
    if (has_body(*client)) {
        write_body(client);
    } else {
        write_code(client);
    }
}

void write_code(connection* client) {
    store_le32(client->code.data(), static_cast<uint32_t>(client->result));
    const ssize_t count = ::send(client->fd.get(), client->code.data(), client->code.size(),
                                 MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < static_cast<ssize_t>(client->code.size())) {
        print_error("write xml result length fail!!\n");
    }
    release_item(client);
}

}  // namespace veltrancord
