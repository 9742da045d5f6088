// Handler of the filter query.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler GetCGIPermitFilter_handle;  // GetCGIPermitFilter: "user&command[&parameters]"

}  // namespace veltrancord
