// Handlers of the read commands.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler read_handle;           // read
command_handler readwithlevel_handle;  // readwithlevel
command_handler read_filter_handle;    // readAndFilter
command_handler readvalue_handle;      // readvalue

}  // namespace veltrancord
