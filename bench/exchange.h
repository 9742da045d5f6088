// One request and its reply on a connection of its own, in each of the measured protocols.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace veltrancord::bench {

enum class protocol : uint8_t {
    veltrancord,  // "?", length, payload; the reply is a result and as many bytes
    until_close,  // the reply is everything until the server closes
    fixed_reply,  // the reply has as many bytes as the expected one; the client closes
};

// Connects to `socket_path`, sends `request` with one call and reads the reply into `reply`, whose
// capacity is used again.
//
// Return: false with errno set when any step fails.
[[nodiscard]] bool exchange(const std::string& socket_path, std::string_view request, protocol kind,
                            std::size_t fixed_size, std::string& reply);

// The service's frame for a payload.
[[nodiscard]] std::string frame_request(std::string_view payload);

}  // namespace veltrancord::bench
