// Wiping of arguments that hold secrets.
#pragma once

#include <string.h>

#include "handler/handler.h"

namespace veltrancord {

// Clears the argument's bytes when the handler ends, so that a token or captcha does not stay in
// the memory of a request that was served. What was taken from the argument as a view is gone then.
class argument_wipe {
  public:
    explicit argument_wipe(const command_argument& argument) noexcept : argument_(argument) {}
    argument_wipe(const argument_wipe&) = delete;
    argument_wipe& operator=(const argument_wipe&) = delete;
    ~argument_wipe() {
        if (!argument_.absent()) {
            explicit_bzero(argument_.data, argument_.size);
        }
    }

  private:
    command_argument argument_;
};

}  // namespace veltrancord
