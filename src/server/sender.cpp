#include "server/sender.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "leaf/message.h"
#include "server/frame.h"

namespace veltrancord {

namespace {

constexpr int most_writes = 5;

bool has_body(const connection& client) {
    return client.result >= 1 && client.reply.is_open();
}

ssize_t send_some(const connection& client) {
    return ::send(client.fd.get(), client.frame.data() + client.written,
                  client.frame.size() - client.written, MSG_DONTWAIT | MSG_NOSIGNAL);
}

next_step write_body(connection& client) {
    for (int turn = 0; turn < most_writes && client.written < client.frame.size(); ++turn) {
        const ssize_t count = send_some(client);
        if (count >= 0) {
            client.written += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            print_error("write xml result error : %s\n", std::strerror(errno));
            return next_step::over;
        }
    }
    return client.written == client.frame.size() ? next_step::over : next_step::wait_to_write;
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

next_step write_reply(connection& client) {
    return has_body(client) ? write_body(client) : write_code(client);
}

next_step write_code(const connection& client) {
    const auto code = code_frame(client.result);
    const ssize_t count =
        ::send(client.fd.get(), code.data(), code.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < static_cast<ssize_t>(code.size())) {
        print_error("write xml result length fail!!\n");
    }
    return next_step::over;
}

void keep_unsent(connection& client) {
    client.payload_block.reset();
    if (client.reply.drop_sent(client.written)) {
        client.frame = client.reply.view();
        client.written = 0;
    }
}

}  // namespace veltrancord
