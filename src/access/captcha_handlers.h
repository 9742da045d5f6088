// Handlers of the captchas.
#pragma once

#include "handler/handler.h"

namespace veltrancord {

command_handler SetCaptcha_handle;         // SetCaptcha: "code&captcha"
command_handler CompareCaptcha_handle;     // CompareCaptcha: "code&captcha[&remove[&lifetime]]"
command_handler UpdateCaptchaTime_handle;  // UpdateCaptchaTime: "code&captcha"
command_handler DelCaptchaItem_handle;     // DelCaptchaItem: "code&captcha"

}  // namespace veltrancord
