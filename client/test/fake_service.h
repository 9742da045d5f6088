// A service for tests: answers each connection as the test says.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "leaf/owned_fd.h"

namespace veltrancord::test {

// The bytes of a reply: the code, little-endian, and a text.
std::string reply_frame(int32_t result, const std::string& text = "");

// Reads one request from the connection. Return: its payload; empty when the frame is not whole.
std::string read_request(int fd);

// Writes all of it; what the client does not take is lost.
void write_all(int fd, const std::string& bytes);

// A directory of its own, removed with the socket in it.
class scratch_directory {
  public:
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;
    scratch_directory(scratch_directory&&) = delete;
    scratch_directory& operator=(scratch_directory&&) = delete;
    [[nodiscard]] std::string socket_path() const { return path_ + "/socket"; }

  private:
    std::string path_;
};

// Listens from construction to destruction; `serve` runs for one connection after another on the
// service's own thread and must come to an end.
class fake_service {
  public:
    using connection_handler = std::function<void(int fd)>;

    fake_service(const std::string& path, connection_handler serve);
    // Reads a request, notes it, and answers with these bytes.
    fake_service(const std::string& path, std::string reply);
    ~fake_service();
    fake_service(const fake_service&) = delete;
    fake_service& operator=(const fake_service&) = delete;
    fake_service(fake_service&&) = delete;
    fake_service& operator=(fake_service&&) = delete;

    [[nodiscard]] std::vector<std::string> requests() const;

  private:
    void run();

    owned_fd listener_;
    owned_fd stop_read_;
    owned_fd stop_write_;
    connection_handler serve_;
    mutable std::mutex guard_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

// A listening socket whose connections are never accepted: `backlog` of them wait, the next one's
// connect blocks.
owned_fd listen_only(const std::string& path, int backlog);

}  // namespace veltrancord::test
