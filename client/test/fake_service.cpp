#include "fake_service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "leaf/byte_order.h"

namespace veltrancord::test {

std::string reply_frame(int32_t result, const std::string& text) {
    unsigned char code[4];
    store_le32(code, static_cast<uint32_t>(result));
    return std::string(reinterpret_cast<const char*>(code), sizeof code) + text;
}

namespace {

bool read_exactly(int fd, char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t count = read(fd, bytes, length);
        if (count <= 0) {
            return false;
        }
        bytes += count;
        length -= static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

std::string read_request(int fd) {
    char header[5];
    if (!read_exactly(fd, header, sizeof header) || header[0] != '?') {
        return {};
    }
    unsigned char length[4];
    std::memcpy(length, header + 1, sizeof length);
    std::string payload(load_le32(length), '\0');
    return read_exactly(fd, payload.data(), payload.size()) ? payload : std::string();
}

void write_all(int fd, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

scratch_directory::scratch_directory() {
    char path[] = "/tmp/client-test-XXXXXX";
    if (mkdtemp(path) == nullptr) {
        std::abort();
    }
    path_ = path;
}

scratch_directory::~scratch_directory() {
    std::filesystem::remove_all(path_);
}

owned_fd listen_only(const std::string& path, int backlog) {
    owned_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        std::abort();
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    unlink(path.c_str());
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), backlog) != 0) {
        std::abort();
    }
    return fd;
}

fake_service::fake_service(const std::string& path, connection_handler serve)
    : listener_(listen_only(path, 64)), serve_(std::move(serve)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        std::abort();
    }
    stop_read_.reset(ends[0]);
    stop_write_.reset(ends[1]);
    thread_ = std::thread([this] { run(); });
}

fake_service::fake_service(const std::string& path, std::string reply)
    : fake_service(path, [this, reply = std::move(reply)](int fd) {
          std::string request = read_request(fd);
          {
              const std::lock_guard lock(guard_);
              requests_.push_back(std::move(request));
          }
          write_all(fd, reply);
      }) {}

fake_service::~fake_service() {
    stop_write_.reset();
    thread_.join();
}

std::vector<std::string> fake_service::requests() const {
    const std::lock_guard lock(guard_);
    return requests_;
}

void fake_service::run() {
    for (;;) {
        pollfd waited[2] = {{listener_.get(), POLLIN, 0}, {stop_read_.get(), POLLIN, 0}};
        if (poll(waited, 2, -1) < 0 || waited[1].revents != 0) {
            return;
        }
        const owned_fd connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection) {
            serve_(connection.get());
        }
    }
}

}  // namespace veltrancord::test
