#include "server/receiver.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "leaf/clock.h"
#include "leaf/message.h"
#include "server/frame.h"
#include "server/serving.h"

namespace veltrancord {

namespace {

constexpr const char* log_name = "do_read";

constexpr int length_attempts = 4;
constexpr int length_wait = 10;  // milliseconds; before each attempt but the first

// A number that this message has always carried; scripts that watch the log look for it.
constexpr int length_message_number = 1932;

bool try_again(int error) {
    return error == EAGAIN || error == EINTR;
}

std::nullopt_t length_failed(int error) {
    print_error("%s read length fail, error: %s!!\n", log_name, std::strerror(error));
    return std::nullopt;
}

constexpr int without_end = -1;

void wait_until_readable(int fd, int milliseconds) {
    pollfd wanted = {fd, POLLIN, 0};
    ::poll(&wanted, 1, milliseconds);  // an interrupted wait only leads to another try
}

// The length when nothing of it has arrived with the start code. It has to come in one piece and
// soon: a client that sends its request in pieces may lose the processor between them, but one that
// sends the start code alone must not hold all others up.
std::optional<uint32_t> read_length(int fd) {
    char bytes[length_size];
    int error = 0;
    for (int attempt = 0; attempt < length_attempts; ++attempt) {
        if (attempt > 0) {
            wait_until_readable(fd, length_wait);
        }
        const ssize_t count = ::recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        error = count < 0 ? errno : 0;
        if (count == static_cast<ssize_t>(sizeof bytes)) {
            return frame_length(bytes);
        }
        if (count >= 0 || !try_again(error)) {
            return length_failed(error);
        }
    }
    print_error("%s %d read length fail, error: %s!!\n", log_name, length_message_number,
                std::strerror(error));
    return std::nullopt;
}

// The length when 1 to 3 bytes of it, `cut`, ended what was received. That is a failure, unless it
// was only the end of our buffer that cut it.
std::optional<uint32_t> complete_length(int fd, std::string_view cut, bool buffer_full) {
    char bytes[length_size];
    const std::size_t missing = sizeof bytes - cut.size();
    std::memcpy(bytes, cut.data(), cut.size());
    if (buffer_full &&
        ::recv(fd, bytes + cut.size(), missing, MSG_DONTWAIT) == static_cast<ssize_t>(missing)) {
        return frame_length(bytes);
    }
    return length_failed(0);
}

std::optional<uint32_t> find_length(int fd, const received_request& request,
                                    const frame_head& head) {
    switch (head.state) {
        case frame_head_state::complete:
            return head.length;
        case frame_head_state::length_cut:
            return complete_length(
                fd, {request.bytes + head.behind_start_code, request.size - head.behind_start_code},
                request.size == received_request::capacity);
        default:
            return read_length(fd);
    }
}

// The time for the rest of a payload, which runs from the first wait on. The gate sets it; without
// one there is no end.
class payload_deadline {
  public:
    explicit payload_deadline(connection& client) : client_(client) {}

    // Waits until the client's socket can be read.
    //
    // Return: false when the time is over.
    [[nodiscard]] bool wait() {
        if (!started_) {
            started_ = true;
            command_gate* const gate = client_.server->gate;
            const int time = gate != nullptr ? gate->payload_time({client_.fd.get(), client_.pass})
                                             : without_end;
            limited_ = time >= 0;
            end_ = limited_ ? monotonic_milliseconds() + time : 0;
        }
        if (!limited_) {
            wait_until_readable(client_.fd.get(), without_end);
            return true;
        }
        const int64_t left = end_ - monotonic_milliseconds();
        if (left <= 0) {
            return false;
        }
        wait_until_readable(client_.fd.get(), static_cast<int>(left));
        return true;
    }

  private:
    connection& client_;
    bool started_ = false;
    bool limited_ = false;
    int64_t end_ = 0;
};

// Reads until the payload holds all its bytes; `have`, which is kept up to date, are there already.
//
// Return: false at the end of the stream, after an error or the end of the client's time.
bool fill_payload(connection& client, std::span<char> payload, std::size_t& have) {
    payload_deadline deadline(client);
    while (have < payload.size()) {
        const ssize_t count =
            ::recv(client.fd.get(), payload.data() + have, payload.size() - have, MSG_DONTWAIT);
        if (count > 0) {
            have += static_cast<std::size_t>(count);
        } else if (count == 0 || !try_again(errno)) {
            return false;
        } else if (!deadline.wait()) {
            print_error("%s request deadline is over!!\n", log_name);
            return false;
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

// Completes the payload of `size` bytes, of which `arrived` have come with the frame's head: it
// stays where it is when it is there as a whole, otherwise it gets a block of its own, into which
// the rest is read.
//
// Return: false after a failure, which is printed.
bool complete_payload(connection& client, received_request& request, std::span<char> arrived,
                      std::size_t size) {
    if (size == 0) {
        // It cannot be told from the end of the stream, and counts as one.
        print_error("%s read command fail!!\n", log_name);
        return false;
    }
    if (arrived.size() >= size) {
        request.payload = arrived.first(size);
    } else {
        char* const block = allocate_payload(client, size);
        if (block == nullptr) {
            print_error("%s malloc fail!!\n", log_name);
            return false;
        }
        std::copy(arrived.begin(), arrived.end(), block);
        request.payload = {block, size};
        std::size_t& have = client.payload_block.get_deleter().used;
        have = arrived.size();
        if (!fill_payload(client, request.payload, have)) {
            print_error("%s read command fail!!\n", log_name);
            return false;
        }
    }
    request.payload.data()[size] = '\0';
    return true;
}

// From the start code to the end of the request.
next_step read_request(connection& client, received_request& request, const frame_head& head) {
    const std::optional<uint32_t> length = find_length(client.fd.get(), request, head);
    if (!length) {
        return next_step::over;
    }
    // Where the length itself was still to come, nothing of the payload has come before it.
    std::span<char> arrived;
    if (head.state == frame_head_state::complete) {
        arrived =
            std::span(request.bytes, request.size).subspan(head.behind_start_code + length_size);
    }
    return complete_payload(client, request, arrived, *length) ? next_step::run_command
                                                               : next_step::over;
}

}  // namespace

received_request::~received_request() {
    ::explicit_bzero(bytes, used);
}

next_step do_read(connection& client, received_request& request) {
    for (;;) {
        const ssize_t count =
            ::recv(client.fd.get(), request.bytes, received_request::capacity, MSG_DONTWAIT);
        if (count < 1) {
            if (count < 0 && try_again(errno)) {
                return next_step::wait_to_read;
            }
            print_error("%s Check start code fail ret=%d!!\n", log_name, static_cast<int>(count));
            return next_step::over;
        }
        request.size = static_cast<std::size_t>(count);
        request.used = std::max(request.used, request.size);
        const frame_head head = find_frame_head({request.bytes, request.size});
        if (head.state != frame_head_state::no_start_code) {
            return read_request(client, request, head);
        }
        if (request.size < received_request::capacity) {
            return next_step::wait_to_read;
        }
    }
}

}  // namespace veltrancord
