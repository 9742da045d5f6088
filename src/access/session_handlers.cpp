#include "access/session_handlers.h"

#include "access/session_lists.h"
#include "handler/argument_fields.h"
#include "handler/argument_wipe.h"
#include "leaf/clock.h"
#include "leaf/decimal_number.h"
#include "leaf/message.h"
#include "leaf/result.h"

namespace veltrancord {

// The whole text is the token, also with an "&" in it; such a token can then never be checked,
// since a check takes what follows the "&" for the lifetime. Refusing it here would turn a login
// page that gets along with it today into one where nobody can log in.
int32_t SetSession_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_wipe wipe(argument);
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
    const argument_wipe wipe(argument);
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

}  // namespace veltrancord
