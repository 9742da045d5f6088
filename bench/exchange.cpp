#include "exchange.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "leaf/byte_order.h"
#include "leaf/owned_fd.h"

namespace veltrancord::bench {

namespace {

bool connect_to(int fd, const std::string& socket_path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, socket_path.data(), socket_path.size());
    return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Appends what one read brings.
//
// Return: what recv returned.
ssize_t read_some(int fd, reply_buffer& reply) {
    const std::span<char> room = reply.room();
    const ssize_t count = ::recv(fd, room.data(), room.size(), 0);
    if (count > 0) {
        reply.take(static_cast<std::size_t>(count));
    }
    return count;
}

std::size_t expected_size(protocol kind, std::size_t fixed_size, std::string_view reply) {
    if (kind == protocol::fixed_reply) {
        return fixed_size;
    }
    if (reply.size() < 4) {
        return 4;
    }
    const auto result =
        static_cast<int32_t>(load_le32(reinterpret_cast<const unsigned char*>(reply.data())));
    return 4 + (result > 0 ? static_cast<std::size_t>(result) : 0);
}

}  // namespace

std::span<char> reply_buffer::room() {
    constexpr std::size_t least = 65536;
    if (bytes_.size() - size_ < least) {
        bytes_.resize(bytes_.size() * 2 + least);
    }
    return std::span(bytes_).subspan(size_);
}

bool exchange(const std::string& socket_path, std::string_view request, protocol kind,
              std::size_t fixed_size, reply_buffer& reply) {
    reply.clear();
    const owned_fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || !connect_to(fd.get(), socket_path)) {
        return false;
    }
    if (::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
        return false;
    }
    for (;;) {
        const ssize_t count = read_some(fd.get(), reply);
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            return kind == protocol::until_close;
        }
        if (kind != protocol::until_close &&
            reply.view().size() >= expected_size(kind, fixed_size, reply.view())) {
            return true;
        }
    }
}

std::string frame_request(std::string_view payload) {
    std::string frame(5, '?');
    store_le32(reinterpret_cast<unsigned char*>(frame.data() + 1),
               static_cast<uint32_t>(payload.size()));
    frame += payload;
    return frame;
}

}  // namespace veltrancord::bench
