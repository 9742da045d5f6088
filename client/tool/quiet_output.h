// Sends standard output and standard error to nowhere while it lives: the store's routines print
// messages that belong into the service's log.
#pragma once

#include "leaf/owned_fd.h"

namespace veltrancord::tool {

class quiet_output {
  public:
    quiet_output();
    ~quiet_output();
    quiet_output(const quiet_output&) = delete;
    quiet_output& operator=(const quiet_output&) = delete;
    quiet_output(quiet_output&&) = delete;
    quiet_output& operator=(quiet_output&&) = delete;

  private:
    owned_fd output_;
    owned_fd error_;
};

}  // namespace veltrancord::tool
