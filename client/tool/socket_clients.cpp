// The kernel's table of local sockets, asked for over netlink: /proc/net/unix has no peers, and
// names sockets by a path that may be another's in another mount namespace.
#include "socket_clients.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "leaf/owned_fd.h"
#include "process_facts.h"

namespace veltrancord::tool {
namespace {

constexpr uint8_t listening_state = 10;  // TCP_LISTEN, which local sockets have, too

struct table_question {
    nlmsghdr head;
    unix_diag_req body;
};

// How the kernel numbers devices among themselves.
dev_t device_of(uint32_t number) {
    return makedev(number >> 20U, number & 0xFFFFFU);
}

// Collects the inode of the peer of each connection that was made to the socket's file.
class table_reader {
  public:
    explicit table_reader(const struct stat& file) : file_(file) {}

    // Return: whether more is to come.
    bool take(const char* bytes, std::size_t size) {
        while (size >= sizeof(nlmsghdr)) {
            nlmsghdr head{};
            std::memcpy(&head, bytes, sizeof head);
            if (head.nlmsg_type == NLMSG_DONE || head.nlmsg_type == NLMSG_ERROR ||
                head.nlmsg_len < sizeof head || head.nlmsg_len > size) {
                complete_ = head.nlmsg_type == NLMSG_DONE;
                return false;
            }
            take_socket(bytes + sizeof head, head.nlmsg_len - sizeof head);
            const std::size_t step = NLMSG_ALIGN(head.nlmsg_len);
            bytes += step < size ? step : size;
            size -= step < size ? step : size;
        }
        return true;
    }

    [[nodiscard]] bool complete() const { return complete_; }
    [[nodiscard]] const std::vector<uint64_t>& peers() const { return peers_; }

  private:
    void take_socket(const char* bytes, std::size_t size) {
        unix_diag_msg socket{};
        if (size < sizeof socket) {
            return;
        }
        std::memcpy(&socket, bytes, sizeof socket);
        bool same_file = false;
        uint32_t peer = 0;
        std::size_t at = sizeof socket;
        while (at + sizeof(rtattr) <= size) {
            rtattr head{};
            std::memcpy(&head, bytes + at, sizeof head);
            if (head.rta_len < sizeof head || head.rta_len > size - at) {
                break;
            }
            const char* const value = bytes + at + RTA_LENGTH(0);
            const std::size_t length = head.rta_len - RTA_LENGTH(0);
            unix_diag_vfs file{};
            if (head.rta_type == UNIX_DIAG_VFS && length >= sizeof file) {
                std::memcpy(&file, value, sizeof file);
                same_file = file.udiag_vfs_ino == static_cast<uint32_t>(file_.st_ino) &&
                            device_of(file.udiag_vfs_dev) == file_.st_dev;
            } else if (head.rta_type == UNIX_DIAG_PEER && length >= sizeof peer) {
                std::memcpy(&peer, value, sizeof peer);
            }
            at += RTA_ALIGN(head.rta_len);
        }
        if (same_file && socket.udiag_state != listening_state && peer != 0) {
            peers_.push_back(peer);
        }
    }

    struct stat file_;
    std::vector<uint64_t> peers_;
    bool complete_ = false;
};

bool read_table(table_reader& reader) {
    const owned_fd netlink(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    table_question question{};
    question.head.nlmsg_len = sizeof question;
    question.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.body.sdiag_family = AF_UNIX;
    question.body.udiag_states = UINT32_MAX;
    question.body.udiag_show = UDIAG_SHOW_VFS | UDIAG_SHOW_PEER;
    if (!netlink || send(netlink.get(), &question, sizeof question, 0) < 0) {
        return false;
    }
    std::vector<char> block(32768);
    ssize_t count = 0;
    do {
        count = recv(netlink.get(), block.data(), block.size(), 0);
    } while (count > 0 && reader.take(block.data(), static_cast<std::size_t>(count)));
    return reader.complete();
}

}  // namespace

std::optional<std::vector<int>> clients_of_socket(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        return std::nullopt;
    }
    table_reader reader(file);
    if (!read_table(reader)) {
        return std::nullopt;
    }
    const std::map<uint64_t, int> holders = holders_of(reader.peers());
    std::vector<int> clients;
    for (const uint64_t peer : reader.peers()) {
        const auto holder = holders.find(peer);
        clients.push_back(holder == holders.end() ? 0 : holder->second);
    }
    return clients;
}

}  // namespace veltrancord::tool
