// Handlers of the event log's commands.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler writelog_handle;          // writelog
command_handler writelogwithtime_handle;  // writelogwithtime
command_handler readlog_handle;           // readlog
command_handler cleanlog_handle;          // cleanlog
command_handler geteventcount_handle;     // geteventcount
command_handler maxlogcount_handle;       // maxlogcount

}  // namespace veltrancord
