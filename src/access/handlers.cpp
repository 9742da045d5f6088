#include "access/handlers.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>

#include "access/checks.h"
#include "access/filter.h"
#include "access/groups.h"
#include "access/permit_db.h"
#include "access/permits.h"
#include "access/sessions.h"
#include "access/users.h"
#include "handler/arguments.h"
#include "leaf/clock.h"
#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

constexpr auto max_reply = static_cast<std::size_t>(std::numeric_limits<int32_t>::max());

// The argument of a permit check behind the group or user: "permit[&argument]".
int32_t decide(std::string_view group, std::string_view question) {
    const argument_fields fields = cut_at_ampersand(question);
    return decide_permit(g_group_list, group, fields.first, fields.rest);
}

int32_t reply_with(connection_record& connection, std::string_view text) {
    if (!connection.reply.open(text.size()) || !connection.reply.append(text)) {
        connection.reply.close();
        return result_too_large;
    }
    return static_cast<int32_t>(text.size());
}

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

// What was asked for is that the new settings count, and they do when this returns; whether other
// programs could be told is printed and no concern of the client's.
int32_t SyncPermit_handle(connection_record&, command_argument, int32_t) {
    reload_permissions();
    save_permit_db();
    return result_ok;
}

// An argument without "&" is denied here, while the queries below do not find it. A page that asks
// by group shows a function unless it is denied, since "not found" also stands for permits that a
// device of this kind does not have: a mangled question must not show what nobody asked about.
int32_t isPermitAllow_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    return fields.rest ? decide(fields.first, *fields.rest) : result_denied;
}

int32_t isPermitAllowByUser_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    const std::string_view group = resolve_user_group(fields.first, g_group_list);
    return group.empty() ? result_denied : decide(group, *fields.rest);
}

int32_t getPermitValue_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    const PermGroup* const group = find_group(g_group_list, fields.first);
    if (group == nullptr) {
        return result_denied;
    }
    // The whole rest is the permit's name, which may hold an "&" here and nowhere else.
    const PermProperty* const property = find_property(*group, *fields.rest);
    return property != nullptr ? reply_with(connection, property->value.view()) : result_not_found;
}

int32_t getGroupName_handle(connection_record& connection, command_argument argument, int32_t) {
    const std::string_view group = resolve_user_group(argument.text(), g_group_list);
    return group.empty() ? result_denied : reply_with(connection, group);
}

int32_t listPermits_handle(connection_record& connection, command_argument, int32_t) {
    if (!connection.reply.open(max_reply) || !list_permits(g_permit_list, connection.reply)) {
        print_error("%s allocate memory fail!!\n", "listPermits_handle");
        connection.reply.close();
        return result_ok;
    }
    return static_cast<int32_t>(connection.reply.size());
}

int32_t GetCGIPermitFilter_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    // The user comes first: somebody unknown may issue nothing, not even what no rule stops.
    const std::string_view group = resolve_user_group(fields.first, g_group_list);
    if (group.empty()) {
        return result_denied;
    }
    const argument_fields request = cut_at_ampersand(*fields.rest);
    return decide_cgi_command(g_filter_list, g_group_list, group, request.first, request.rest);
}

// The whole text is the token, also with an "&" in it; such a token can then never be checked,
// since a check takes what follows the "&" for the lifetime. Refusing it here would turn a login
// page that gets along with it today into one where nobody can log in.
int32_t SetSession_handle(connection_record& connection, command_argument argument, int32_t) {
    if (argument.absent()) {
        print_error("%s: NULL Session String !!\n", "SetSession_handle");
        return result_argument_absent;
    }
    if (!add_session(*connection.listener->sessions, argument.text(), wall_clock_seconds())) {
        print_error("%s: allocate fail !!\n", "SetSession_handle");
        return result_too_large;
    }
    return result_ok;
}

int32_t CheckSession_handle(connection_record& connection, command_argument argument, int32_t) {
    if (argument.absent()) {
        print_error("%s: NULL String !!\n", "CheckSession_handle");
        return result_argument_absent;
    }
    const argument_fields fields = cut_at_ampersand(argument.text());
    const int32_t lifetime = fields.rest ? decimal_number(*fields.rest) : default_session_lifetime;
    const bool valid = is_session_valid(*connection.listener->sessions, fields.first, lifetime,
                                        wall_clock_seconds());
    return valid ? result_ok : result_not_found;
}

// Everything behind the first "&" is the captcha, here and where it is refreshed and deleted. Only
// a comparison ends it at the next "&", since more fields follow there: a captcha that holds an "&"
// can be kept, but not answered.
int32_t SetCaptcha_handle(connection_record& connection, command_argument argument, int32_t) {
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
    const auto texts =
        split(argument, {"DelCaptchaItem", "NULL String", "Captcha Code NULL String"});
    if (!texts) {
        return result_argument_absent;
    }
    remove_captchas(*connection.listener->sessions, texts->verify_code, texts->rest);
    return result_not_found;
}

}  // namespace veltrancord
