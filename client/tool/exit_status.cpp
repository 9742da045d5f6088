#include "exit_status.h"

#include <veltrancord/result.h>

namespace veltrancord::tool {

const char* exit_status_name(int status) {
    switch (status) {
        case exit_done:
            return "OK";
        case exit_not_found:
            return "NOT_FOUND";
        case exit_usage:
            return "USAGE";
        case exit_denied:
            return "DENIED";
        case exit_empty:
            return "EMPTY";
        case exit_refused:
            return "REFUSED";
        case exit_too_large:
            return "TOO_LARGE";
        case exit_unreachable:
            return "UNREACHABLE";
        case exit_timed_out:
            return "TIMED_OUT";
        case exit_differs:
            return "DIFFERS";
        case exit_cancelled:
            return "CANCELLED";
        case exit_broken:
            return "BROKEN";
        case exit_mismatch:
            return "MISMATCH";
        case exit_unknown:
            return "UNKNOWN";
        case exit_not_saved:
            return "NOT_SAVED";
        case exit_no_log:
            return "NO_LOG";
        case exit_other_key:
            return "OTHER_KEY";
        case exit_not_allowed:
            return "NOT_ALLOWED";
        default:
            return "FAILED";
    }
}

const char* exit_status_text(int status) {
    switch (status) {
        case exit_done:
            return "done";
        case exit_not_found:
            return "there is no such thing";
        case exit_usage:
            return "the command line is wrong, or nobody is there to be asked";
        case exit_denied:
            return "denied";
        case exit_empty:
            return "the place exists, but holds nothing";
        case exit_refused:
            return "an argument or a file's content is refused";
        case exit_too_large:
            return "too large";
        case exit_unreachable:
            return "the service cannot be reached";
        case exit_timed_out:
            return "timed out";
        case exit_differs:
            return "there are differences, or findings";
        case exit_cancelled:
            return "cancelled, or not confirmed";
        case exit_broken:
            return "broken reply";
        case exit_mismatch:
            return "wrong or expired";
        case exit_unknown:
            return "unknown whether the change was applied";
        case exit_not_saved:
            return "applied, but not saved, as on a full disk";
        case exit_no_log:
            return "the event log keeps no events";
        case exit_other_key:
            return "secrets are stored with another key, or it cannot be told";
        case exit_not_allowed:
            return "the description of the settings does not allow it";
        default:
            return "a file cannot be read or written, or the store failed";
    }
}

int exit_status_of(int32_t result) {
    switch (result) {
        case VELTRANCORD_CAPTCHA_EXPIRED:
        case VELTRANCORD_CAPTCHA_WRONG:
            return exit_mismatch;
        case VELTRANCORD_NOT_FOUND:
            return exit_not_found;
        case VELTRANCORD_DENIED:
            return exit_denied;
        case VELTRANCORD_TOO_LARGE:
        case VELTRANCORD_REPLY_OVER_CAP:
            return exit_too_large;
        case VELTRANCORD_BAD_ARGUMENT:
        case VELTRANCORD_ARGUMENT_ABSENT:
            return exit_refused;
        case VELTRANCORD_UNREACHABLE:
            return exit_unreachable;
        case VELTRANCORD_TIMED_OUT:
            return exit_timed_out;
        case VELTRANCORD_NO_REPLY:
        case VELTRANCORD_BROKEN_REPLY:
            return exit_broken;
        default:
            if (result >= 0) {
                return exit_done;
            }
            return result <= VELTRANCORD_INVALID_USE ? exit_refused : exit_failed;
    }
}

}  // namespace veltrancord::tool
