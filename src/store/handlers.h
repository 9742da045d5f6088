// Handlers of the commands that read settings and attributes.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler read_handle;            // read
command_handler readwithlevel_handle;   // readwithlevel
command_handler read_filter_handle;     // readAndFilter
command_handler readvalue_handle;       // readvalue
command_handler readattr_handle;        // readattr
command_handler readsingleattr_handle;  // readsingleattr

}  // namespace veltrancord
