/* Result codes of the client library, each with a text. */
#ifndef VELTRANCORD_RESULT_H
#define VELTRANCORD_RESULT_H

#include <stdint.h>

#if defined(__GNUC__)
#define VELTRANCORD_API __attribute__((visibility("default")))
#else
#define VELTRANCORD_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What a call gives. Functions return int32_t, since a success is often a length or a count. */
enum veltrancord_result {
    VELTRANCORD_OK = 0,

    /* Answered by the service. */
    VELTRANCORD_FAILED = -1,          /* a file could not be created, written or read back */
    VELTRANCORD_UNPARSABLE = -3,      /* an exchange file that is missing or does not parse */
    VELTRANCORD_NOT_FOUND = -4,       /* no such setting, document, permit, entry or command */
    VELTRANCORD_BAD_ARGUMENT = -7,    /* a path that names nothing, or an argument out of bounds */
    VELTRANCORD_TOO_LARGE = -8,       /* the reply is over the service's capacity, or no memory */
    VELTRANCORD_ARGUMENT_ABSENT = -9, /* an argument or a field of it is missing */
    VELTRANCORD_STORE_FAILED = -11,   /* the store could not apply the value */
    VELTRANCORD_DENIED = -12,         /* denied, or an unknown user or group */

    /* Told by the library about the exchange. */
    VELTRANCORD_UNREACHABLE = -100,    /* nobody listens on the socket */
    VELTRANCORD_TIMED_OUT = -101,      /* connected, but no whole reply before the deadline */
    VELTRANCORD_NO_REPLY = -102,       /* the connection was closed without a reply */
    VELTRANCORD_BROKEN_REPLY = -103,   /* the reply ended early, or is none that can be */
    VELTRANCORD_REPLY_OVER_CAP = -104, /* the reply is larger than the caller accepts */
    VELTRANCORD_NO_MEMORY = -105,      /* the library could not allocate */
    VELTRANCORD_SYSTEM_ERROR = -106,   /* a system call failed; system_error tells which way */

    /* veltrancord_compare_captcha() alone gives these two. The service answers 1 and 2; here they
     * are below 0 as every failure is, so that a program that only looks for one lets nobody in. */
    VELTRANCORD_CAPTCHA_EXPIRED = -110, /* the right answer, too late */
    VELTRANCORD_CAPTCHA_WRONG = -111,

    /* Refused by the library before it connects. */
    VELTRANCORD_INVALID_USE = -120,         /* a null pointer or an empty list */
    VELTRANCORD_PATH_EMPTY = -121,          /* a path without a component */
    VELTRANCORD_PATH_HAS_EQUALS = -122,     /* a path would end at its '=' */
    VELTRANCORD_PATH_HAS_LINE_FEED = -123,  /* a path with a line feed */
    VELTRANCORD_VALUE_HAS_LINE_FEED = -124, /* a value would end at its line feed */
    VELTRANCORD_FIELD_HAS_SEPARATOR = -125, /* a field with '&' where another field follows */
    VELTRANCORD_PATH_OVER_BOUND = -126,
    VELTRANCORD_VALUE_OVER_BOUND = -127,
    VELTRANCORD_ATTRIBUTE_OVER_BOUND = -128,  /* an attribute's name or value */
    VELTRANCORD_FILE_NAME_OVER_BOUND = -129,  /* path of an exchange file */
    VELTRANCORD_FIELD_OVER_BOUND = -130,      /* a field of a log or backup command */
    VELTRANCORD_LOG_TEXT_UNREADABLE = -131,   /* empty, or with ':': it could never be read back */
    VELTRANCORD_COMMAND_HAS_SEPARATOR = -132, /* a command name that is empty or has ':' */
    VELTRANCORD_FIELD_EMPTY = -133,           /* a field that must not be empty */

    /* Told by <veltrancord/schema.h>; -134 and -135 are the Python module's. */
    VELTRANCORD_NOT_ALLOWED = -136 /* the description of the settings does not allow the value */
};

/* A text in English for a result, for example "not found". Never null; static memory; any thread.
 *
 * Return: the text; "result of the service" for a code that has no name. */
VELTRANCORD_API const char* veltrancord_result_text(int32_t result);

/* The name of a result's enumerator without its prefix, for example "NOT_FOUND"; static memory.
 *
 * Return: the name, or null for a code that has none. */
VELTRANCORD_API const char* veltrancord_result_name(int32_t result);

#ifdef __cplusplus
}
#endif

#endif
