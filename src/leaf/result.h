// The result codes of operations and handlers, as clients see them on the wire.
//
// 0 or a positive count or length is success; a negative value is one of the failures below.
// Routines return plain int32_t, since a success is often a length.
#pragma once

#include <cstdint>

namespace veltrancord {

enum result : int32_t {
    result_ok = 0,
    result_failed = -1,           // a file could not be read back, created or written
    result_unparsable = -3,       // an exchange file that cannot be loaded or named
    result_not_found = -4,        // no such element, document, permit or command; level refused
    result_bad_argument = -7,     // a path that does not split, or an argument out of bounds
    result_too_large = -8,        // out of memory, or a reply over the reply capacity
    result_argument_absent = -9,  // no argument text at all, or a field of it missing
    result_store_failed = -11,    // the store could not apply a value
    result_denied = -12,          // denied, or an unknown user or group

    // CompareCaptcha alone answers these two.
    result_captcha_expired = 1,
    result_captcha_wrong = 2,
};

}  // namespace veltrancord
