// Handlers of the permission queries. None changes anything.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler isPermitAllow_handle;        // isPermitAllow: "group&permit[&argument]"
command_handler isPermitAllowByUser_handle;  // isPermitAllowByUser: "user&permit[&argument]"
command_handler getPermitValue_handle;       // getPermitValue: "group&permit"
command_handler getGroupName_handle;         // getGroupName: "user"
command_handler listPermits_handle;          // listPermits: the argument is ignored

}  // namespace veltrancord
