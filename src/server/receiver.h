// Reading one request from a connection.
#pragma once

#include <cstddef>
#include <span>

#include "server/connection.h"

namespace veltrancord {

// A request while it is received and served: where its bytes go, and in the end its payload.
struct received_request {
    // One call takes in a whole request of the usual size. Bytes beyond the frame are read, too: a
    // local socket that is closed over unread bytes resets its peer.
    static constexpr std::size_t capacity = 4096;

    // The bytes are deliberately not cleared.
    // NOLINTNEXTLINE(modernize-use-equals-default)
    received_request() noexcept {}  // cppcheck-suppress uninitMemberVar
    received_request(const received_request&) = delete;
    received_request& operator=(const received_request&) = delete;
    ~received_request();  // they may hold a secret, and are wiped as far as they were used

    char bytes[capacity + 1];  // with room for a NUL behind the payload
    std::size_t size = 0;      // of what the last call took in
    std::size_t used = 0;      // of the bytes

    // Complete, with a NUL behind it; in `bytes`, or in the connection's payload block.
    std::span<char> payload;
};

// Reads what a readable connection holds; called each time it can be read. Once a start code is
// there the whole request is read within the call, which waits for the rest of the payload as long
// as it takes, or as the gate lets it. Failures are printed here.
//
// Return: wait_to_read, run_command with `request.payload` set, or over.
[[nodiscard]] next_step do_read(connection& client, received_request& request);

}  // namespace veltrancord
