// A file descriptor with one owner, closed when the owner goes.
#pragma once

#include <unistd.h>

#include <utility>

namespace veltrancord {

// Move-only. An empty owner holds -1. The destructor and reset() leave errno as it was, so that the
// reason of a failure can still be told after them.
class owned_fd {
  public:
    owned_fd() noexcept = default;
    explicit owned_fd(int fd) noexcept : fd_(fd) {}
    owned_fd(owned_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    owned_fd& operator=(owned_fd&& other) noexcept {
        if (this != &other) {
            reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    owned_fd(const owned_fd&) = delete;
    owned_fd& operator=(const owned_fd&) = delete;
    ~owned_fd() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

    // Gives the descriptor away; the caller closes it.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    // Closes what is held and takes `fd` (-1: nothing).
    void reset(int fd = -1) noexcept {
        if (fd_ >= 0) {
            close_keeping_errno();
        }
        fd_ = fd;
    }

    // Closes what is held and tells whether that went well: where written data may still be lost
    // at close, the owner must ask.
    //
    // Return: 0, or -1 with errno set. The descriptor is gone either way.
    [[nodiscard]] int close() noexcept {
        const int fd = release();
        return fd >= 0 ? ::close(fd) : 0;
    }

  private:
    void close_keeping_errno() const noexcept;

    int fd_ = -1;
};

}  // namespace veltrancord
