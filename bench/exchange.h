// One request and its reply on a connection of its own, in each of the measured protocols.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord::bench {

enum class protocol : uint8_t {
    veltrancord,  // "?", length, payload; the reply is a result and as many bytes
    until_close,  // the reply is everything until the server closes
    fixed_reply,  // the reply has as many bytes as the expected one; the client closes
};

// Memory for one reply after the other. It is neither cleared nor copied for each: a client that
// shares the server's processor would empty the server's caches with that.
class reply_buffer {
  public:
    [[nodiscard]] std::string_view view() const { return {bytes_.data(), size_}; }
    void clear() { size_ = 0; }

    // Room behind what is there, at least as much as a socket usually holds.
    [[nodiscard]] std::span<char> room();

    // Takes the first `count` bytes of the room for received ones.
    void take(std::size_t count) { size_ += count; }

  private:
    std::vector<char> bytes_;
    std::size_t size_ = 0;
};

// Connects to `socket_path`, sends `request` with one call and reads the reply into `reply`.
//
// Return: false with errno set when any step fails.
[[nodiscard]] bool exchange(const std::string& socket_path, std::string_view request, protocol kind,
                            std::size_t fixed_size, reply_buffer& reply);

// The service's frame for a payload.
[[nodiscard]] std::string frame_request(std::string_view payload);

}  // namespace veltrancord::bench
