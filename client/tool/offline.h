// Documents of a directory without a service: with --root the tool serves them to itself.
//
// A child process loads the directory and answers on a socket that nobody else can reach, with the
// service's own store, handlers and server. So every command asks as it always does, and what it
// reads and writes cannot differ from what a device would. A device's programs are not started.
#pragma once

#include <sys/types.h>

#include <string>

#include "context.h"
#include "leaf/owned_fd.h"

namespace veltrancord::tool {

class offline_service {
  public:
    offline_service() = default;
    ~offline_service();
    offline_service(const offline_service&) = delete;
    offline_service& operator=(const offline_service&) = delete;
    offline_service(offline_service&&) = delete;
    offline_service& operator=(offline_service&&) = delete;

    // Serves the directory tool.root, and has the tool ask there. A directory that a service or
    // another tool works on is refused. Return: exit_done, or a status after a message.
    int start(context& tool);

    // Ends it. Return: `status`, or a failure after a message where a document could not be saved.
    int finish(context& tool, int status);

  private:
    bool end();

    std::string folder_;  // of the socket; the child removes it
    owned_fd life_;       // the child ends when this one is closed
    pid_t child_ = -1;
};

}  // namespace veltrancord::tool
