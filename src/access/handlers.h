// Handlers of the commands about permissions, CGI commands, sessions and captchas.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler SyncPermit_handle;           // SyncPermit: the argument is ignored
command_handler isPermitAllow_handle;        // isPermitAllow: "group&permit[&argument]"
command_handler isPermitAllowByUser_handle;  // isPermitAllowByUser: "user&permit[&argument]"
command_handler getPermitValue_handle;       // getPermitValue: "group&permit"
command_handler getGroupName_handle;         // getGroupName: "user"
command_handler listPermits_handle;          // listPermits: the argument is ignored
command_handler GetCGIPermitFilter_handle;   // GetCGIPermitFilter: "user&command[&parameters]"

// Tokens and captchas are secrets; the server wipes each request when it has been answered.
command_handler SetSession_handle;         // SetSession: "session"
command_handler CheckSession_handle;       // CheckSession: "session[&lifetime]"
command_handler SetCaptcha_handle;         // SetCaptcha: "code&captcha"
command_handler CompareCaptcha_handle;     // CompareCaptcha: "code&captcha[&remove[&lifetime]]"
command_handler UpdateCaptchaTime_handle;  // UpdateCaptchaTime: "code&captcha"
command_handler DelCaptchaItem_handle;     // DelCaptchaItem: "code&captcha"

}  // namespace veltrancord
