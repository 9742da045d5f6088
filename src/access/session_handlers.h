// Handlers of the login sessions.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler SetSession_handle;    // SetSession: "session"
command_handler CheckSession_handle;  // CheckSession: "session[&lifetime]"

}  // namespace veltrancord
