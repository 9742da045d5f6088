// Handlers of the attribute queries.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler readattr_handle;        // readattr
command_handler readsingleattr_handle;  // readsingleattr

}  // namespace veltrancord
