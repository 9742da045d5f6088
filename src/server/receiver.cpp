#include "server/receiver.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <span>

#include "leaf/message.h"
#include "server/dispatch.h"
#include "server/event_loop.h"
#include "server/frame.h"
#include "server/request_server.h"

namespace veltrancord {

namespace {

constexpr const char* log_name = "do_read";

// One call takes in a whole request of the usual size. What is read here beyond the frame is thus
// already out of the socket, which matters when it is closed.
constexpr std::size_t first_read = 4096;

constexpr int length_attempts = 4;

// A number that this message has always carried; scripts that watch the log look for it.
constexpr int length_message_number = 1932;

bool try_again(int error) {
    return error == EAGAIN || error == EINTR;
}

// What has been received so far, start code included.
struct received_bytes {
    char bytes[first_read + 1];  // with room for a NUL behind the payload
    std::size_t size;

    [[nodiscard]] std::string_view view() const { return {bytes, size}; }
    [[nodiscard]] bool full() const { return size == first_read; }
};

std::nullopt_t length_failed(connection& client, int error) {
    release_item(&client);
    print_error("%s read length fail, error: %s!!\n", log_name, std::strerror(error));
    return std::nullopt;
}

// The length when nothing of it has arrived with the start code. It has to come in one piece and
// practically together with the start code: a handful of attempts without a pause.
std::optional<uint32_t> read_length(connection& client) {
    char bytes[length_size];
    int error = 0;
    for (int attempt = 0; attempt < length_attempts; ++attempt) {
        const ssize_t count = ::recv(client.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        error = count < 0 ? errno : 0;
        if (count == static_cast<ssize_t>(sizeof bytes)) {
            return frame_length(bytes);
        }
        if (count >= 0 || !try_again(error)) {
            return length_failed(client, error);
        }
    }
    release_item(&client);
    print_error("%s %d read length fail, error: %s!!\n", log_name, length_message_number,
                std::strerror(error));
    return std::nullopt;
}

// The length when 1 to 3 bytes of it ended what was received. That is a failure, unless it was only
// the end of our buffer that cut it.
std::optional<uint32_t> complete_length(connection& client, const received_bytes& received,
                                        std::size_t begin) {
    char bytes[length_size];
    const std::size_t have = received.size - begin;
    const std::size_t missing = sizeof bytes - have;
    std::memcpy(bytes, received.bytes + begin, have);
    if (received.full() && ::recv(client.fd.get(), bytes + have, missing, MSG_DONTWAIT) ==
                               static_cast<ssize_t>(missing)) {
        return frame_length(bytes);
    }
    return length_failed(client, 0);
}

std::optional<uint32_t> find_length(connection& client, const received_bytes& received,
                                    const frame_head& head) {
    switch (head.state) {
        case frame_head_state::complete:
            return head.length;
        case frame_head_state::length_cut:
            return complete_length(client, received, head.behind_start_code);
        default:
            return read_length(client);
    }
}

void wait_until_readable(int fd) {
    pollfd wanted = {fd, POLLIN, 0};
    ::poll(&wanted, 1, -1);  // an interrupted wait only leads to another try
}

// Reads until the payload holds all its bytes; `have` of them are there already.
//
// Return: false at the end of the stream or after an error.
bool fill_payload(const connection& client, std::span<char> payload, std::size_t have) {
    while (have < payload.size()) {
        const ssize_t count =
            ::recv(client.fd.get(), payload.data() + have, payload.size() - have, MSG_DONTWAIT);
        if (count > 0) {
            have += static_cast<std::size_t>(count);
        } else if (count == 0 || !try_again(errno)) {
            return false;
        } else {
            wait_until_readable(client.fd.get());
        }
    }
    return true;
}

// Memory for `size` bytes and a NUL. It is neither cleared nor touched: a client that announces
// four gigabytes and sends nothing costs addresses only.
//
// Return: null when it could not be had.
char* allocate_payload(connection& client, std::size_t size) {
    if (size < std::numeric_limits<std::size_t>::max()) {
        client.payload_block.reset(static_cast<char*>(std::malloc(size + 1)));
    }
    return client.payload_block.get();
}

// The payload, which begins at `begin` of what was received: where it is when it is there as a
// whole, otherwise in a block of its own, into which the rest is read.
//
// Return: null after a failure, which is printed; the connection is then gone.
char* complete_payload(connection& client, received_bytes& received, std::size_t begin,
                       std::size_t size) {
    char* payload = received.bytes + std::min(begin, received.size);
    const std::size_t have = received.size - std::min(begin, received.size);
    if (size > have) {
        payload = allocate_payload(client, size);
        if (payload == nullptr) {
            release_item(&client);
            print_error("%s malloc fail!!\n", log_name);
            return nullptr;
        }
        std::memcpy(payload, received.bytes + received.size - have, have);
    }
    // A payload of no bytes cannot be told from the end of the stream, and counts as one.
    if (size == 0 || !fill_payload(client, {payload, size}, std::min(have, size))) {
        release_item(&client);
        print_error("%s read command fail!!\n", log_name);
        return nullptr;
    }
    payload[size] = '\0';
    return payload;
}

// From the start code to the end of the request.
void read_request(connection& client, received_bytes& received, const frame_head& head) {
    // Nothing more is read once the request is there, so the loop must not wait for it either.
    client.server->loop.remove(client.idle_timer);
    client.server->loop.remove(client.read_event);

    const std::optional<uint32_t> length = find_length(client, received, head);
    if (!length) {
        return;
    }
    const std::size_t begin = head.behind_start_code + length_size;
    if (char* const payload = complete_payload(client, received, begin, *length)) {
        dispatch(&client, {payload, *length});
    }
}

}  // namespace

read_outcome do_read(connection& client) {
    received_bytes received;  // deliberately not cleared
    for (;;) {
        const ssize_t count = ::recv(client.fd.get(), received.bytes, first_read, MSG_DONTWAIT);
        if (count < 1) {
            if (count < 0 && try_again(errno)) {
                return read_outcome::waiting;
            }
            release_item(&client);
            print_error("%s Check start code fail ret=%d!!\n", log_name, static_cast<int>(count));
            return read_outcome::over;
        }
        received.size = static_cast<std::size_t>(count);
        const frame_head head = find_frame_head(received.view());
        if (head.state != frame_head_state::no_start_code) {
            read_request(client, received, head);
            return read_outcome::over;
        }
        if (!received.full()) {
            return read_outcome::waiting;
        }
    }
}

}  // namespace veltrancord
