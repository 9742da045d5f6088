#include "access/captcha_handlers.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "access/session_lists.h"
#include "handler/argument_fields.h"
#include "handler/argument_wipe.h"
#include "leaf/clock.h"
#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

struct captcha_texts {
    std::string_view verify_code;
    std::string_view rest;  // the captcha and what may follow it
};

// The texts of the log lines for an argument that is absent and for one without "&".
struct missing_messages {
    const char* handler;
    const char* argument;
    const char* ampersand;
};

std::optional<captcha_texts> split(const command_argument& argument,
                                   const missing_messages& messages) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        print_error("%s: %s !!\n", messages.handler,
                    argument.absent() ? messages.argument : messages.ampersand);
        return std::nullopt;
    }
    return captcha_texts{fields.first, *fields.rest};
}

captcha_question parse_question(const captcha_texts& texts) {
    const argument_fields captcha = cut_at_ampersand(texts.rest);
    captcha_question question;
    question.verify_code = texts.verify_code;
    question.captcha = captcha.first;
    if (captcha.rest) {
        const argument_fields remove = cut_at_ampersand(*captcha.rest);
        question.remove = decimal_number(remove.first) != 0;
        if (remove.rest) {
            question.lifetime = std::max(decimal_number(*remove.rest), min_captcha_lifetime);
        }
    }
    return question;
}

}  // namespace

// Everything behind the first "&" is the captcha, here and where it is refreshed and deleted. Only
// a comparison ends it at the next "&", since more fields follow there: a captcha that holds an "&"
// can be kept, but not answered.
int32_t SetCaptcha_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_wipe wipe(argument);
    const auto texts =
        split(argument, {"SetCaptcha_handle", "NULL Captcha String", "NULL Verify String"});
    if (!texts) {
        return result_argument_absent;
    }
    const char* missing = nullptr;
    switch (add_captcha(*connection.listener->sessions, texts->verify_code, texts->rest,
                        wall_clock_seconds())) {
        case captcha_addition::added:
            return result_ok;
        case captcha_addition::no_item:
            missing = "allocate fail";
            break;
        case captcha_addition::no_captcha:
            missing = "strdup Captcha fail";
            break;
        case captcha_addition::no_verify_code:
            missing = "strdup VerifyCode fail";
            break;
    }
    print_error("%s: %s !!\n", "SetCaptcha_handle", missing);
    return result_too_large;
}

int32_t CompareCaptcha_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_wipe wipe(argument);
    const auto texts =
        split(argument, {"CompareCaptcha_handle", "NULL String", "Captcha Code NULL String"});
    if (!texts) {
        return result_argument_absent;
    }
    return compare_captcha(*connection.listener->sessions, parse_question(*texts),
                           wall_clock_seconds());
}

// Its log lines have always named it without the "t"; whoever searches logs for it does so too.
int32_t UpdateCaptchaTime_handle(connection_record& connection, command_argument argument,
                                 int32_t) {
    const argument_wipe wipe(argument);
    const auto texts =
        split(argument, {"UpdateCapchaTime", "NULL String", "Captcha Code NULL String"});
    if (!texts) {
        return result_argument_absent;
    }
    const bool found = refresh_captcha(*connection.listener->sessions, texts->verify_code,
                                       texts->rest, wall_clock_seconds());
    return found ? result_ok : result_not_found;
}

// "Not found", whether or not anything was deleted: pages delete what may have expired already and
// ignore the result. Telling the two apart would tell anybody who asks whether a guessed captcha
// was right, without the rules of a comparison.
int32_t DelCaptchaItem_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_wipe wipe(argument);
    const auto texts =
        split(argument, {"DelCaptchaItem", "NULL String", "Captcha Code NULL String"});
    if (!texts) {
        return result_argument_absent;
    }
    remove_captchas(*connection.listener->sessions, texts->verify_code, texts->rest);
    return result_not_found;
}

}  // namespace veltrancord
