/* The description of a device's settings, for programs that look before they write: is this value
 * allowed, and what is the setting called.
 *
 * A product describes its settings in a directory with one file for each document, NAME.xsd. This
 * library reads those files and nothing else: the service is not asked, and need not run. What it
 * tells is a rule of the product, not a guard: another program may write what is not allowed.
 *
 * Texts given in are NUL-terminated and borrowed for the time of the call only. Paths are those of
 * <veltrancord/client.h>, in plain form. A schema may be used by one thread at a time, different
 * ones by different threads at once. Link with -lveltrancord-schema; libveltrancord is not needed.
 */
#ifndef VELTRANCORD_SCHEMA_H
#define VELTRANCORD_SCHEMA_H

#include <stddef.h>
#include <stdint.h>
#include <veltrancord/result.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a check gives beside VELTRANCORD_OK; it is above 0, as nothing is wrong. */
enum veltrancord_check_result {
    VELTRANCORD_NOT_DESCRIBED = 1 /* the document has no description, so nothing is known of it */
};

/* What a value is. */
enum veltrancord_kind {
    VELTRANCORD_KIND_GROUP = 0,   /* no value: other settings lie below */
    VELTRANCORD_KIND_TEXT = 1,    /* anything that the lengths and the pattern allow */
    VELTRANCORD_KIND_BOOLEAN = 2, /* one of two choices, such as YES and NO */
    VELTRANCORD_KIND_CHOICE = 3,  /* one of `choices` */
    VELTRANCORD_KIND_INTEGER = 4, /* a whole number in decimal digits */
    VELTRANCORD_KIND_DECIMAL = 5, /* a number that may have a fraction */
    VELTRANCORD_KIND_DATE = 6,    /* YYYY-MM-DD */
    VELTRANCORD_KIND_TIME = 7     /* HH:MM:SS */
};

/* Descriptions as they were when each was first asked for. */
struct veltrancord_schema;

/* What is wrong with a value. The texts are in English, never null, and hold until the next call
 * with the same schema. */
struct veltrancord_violation {
    const char* rule;    /* a word for programs: "maxInclusive", "enumeration", "undescribed" ... */
    const char* reason;  /* a sentence for people, which does not repeat the path */
    const char* nearest; /* the nearest value that is allowed, of "undescribed" the nearest path;
                            empty where there is none */
};

/* What is known of a setting. The texts are never null, empty where nothing is said, and hold until
 * the next call with the same schema. */
struct veltrancord_description {
    enum veltrancord_kind kind;
    const char* label;   /* a few words, in the language asked for */
    const char* help;    /* sentences, likewise */
    const char* type;    /* the type's name as it is written: "xs:unsignedShort" ... */
    const char* allowed; /* what a value may be, for people: "a whole number from 68 to 9000" */
    const char* default_value; /* what holds where nothing is set; see has_default */
    const char* minimum;       /* the least and the greatest number, date or time */
    const char* maximum;
    const char* pattern;        /* what the whole text has to match */
    const char* unit;           /* what a number counts */
    const char* level;          /* the attribute Level that it is to have */
    const char* program;        /* what a write of it starts: the attribute DispatchW */
    const char* const* choices; /* the values that are allowed, or null where others are, too */
    size_t choice_count;
    int32_t min_length;  /* of a text, in characters; -1: not bounded */
    int32_t max_length;  /* likewise */
    int32_t has_default; /* not 0: default_value is one, though it be empty */
    int32_t is_secret;   /* not 0: a value must not be shown */
};

/* Takes a directory of descriptions into use; null or empty: what the environment's
 * VELTRANCORD_SCHEMA names, else the one that the library was built with, which a program that runs
 * with more rights than who started it always takes. A directory that is not there describes
 * nothing. The schema is the caller's until veltrancord_schema_close(); null after a failure.
 *
 * Return: VELTRANCORD_OK, VELTRANCORD_INVALID_USE or VELTRANCORD_NO_MEMORY. */
VELTRANCORD_API int32_t veltrancord_schema_open(const char* directory,
                                                struct veltrancord_schema** schema);

/* Ends it, with all texts that it gave. Null is harmless. */
VELTRANCORD_API void veltrancord_schema_close(struct veltrancord_schema* schema);

/* Whether `value` may be written to `path`. What is wrong goes into `violation`, which may be null.
 * The file of the path's document is read by the first question about it, and held.
 *
 * Return: VELTRANCORD_OK, VELTRANCORD_NOT_DESCRIBED, VELTRANCORD_NOT_ALLOWED with what is wrong,
 * VELTRANCORD_UNPARSABLE for a description that cannot be used, its file and line then being in
 * violation->reason, VELTRANCORD_INVALID_USE or VELTRANCORD_NO_MEMORY. */
VELTRANCORD_API int32_t veltrancord_schema_check(struct veltrancord_schema* schema,
                                                 const char* path, const char* value,
                                                 struct veltrancord_violation* violation);

/* What is known of the setting or group at `path`, in the language of the user: `language` begins
 * with its code, as the names of locales do ("de_AT.UTF-8"); null or empty: what the environment's
 * LC_ALL, LC_MESSAGES or LANG says. Where nothing is said in it, English is taken.
 *
 * Return: VELTRANCORD_OK, VELTRANCORD_NOT_FOUND where the description names no such place,
 * VELTRANCORD_NOT_DESCRIBED, or a failure as those of veltrancord_schema_check(). */
VELTRANCORD_API int32_t veltrancord_schema_describe(struct veltrancord_schema* schema,
                                                    const char* path, const char* language,
                                                    struct veltrancord_description* description);

/* The same as veltrancord_schema_check() with a schema of its own on the usual directory, for
 * programs with a single question. Any thread.
 *
 * Return: as there. */
VELTRANCORD_API int32_t veltrancord_check(const char* path, const char* value);

#ifdef __cplusplus
}
#endif

#endif
