/* Names and texts of the results. */
#include <stddef.h>
#include <veltrancord/result.h>

struct result_entry {
    int32_t code;
    const char* name;
    const char* text;
};

static const struct result_entry* find_entry(int32_t result) {
    static const struct result_entry entries[] = {
        {VELTRANCORD_OK, "OK", "done"},
        {VELTRANCORD_CAPTCHA_EXPIRED, "CAPTCHA_EXPIRED", "captcha expired"},
        {VELTRANCORD_CAPTCHA_WRONG, "CAPTCHA_WRONG", "wrong captcha"},
        {VELTRANCORD_FAILED, "FAILED", "a file could not be created, written or read back"},
        {VELTRANCORD_UNPARSABLE, "UNPARSABLE", "the exchange file is missing or does not parse"},
        {VELTRANCORD_NOT_FOUND, "NOT_FOUND", "not found"},
        {VELTRANCORD_BAD_ARGUMENT, "BAD_ARGUMENT", "the service refuses the argument"},
        {VELTRANCORD_TOO_LARGE, "TOO_LARGE", "the reply is over the service's capacity"},
        {VELTRANCORD_ARGUMENT_ABSENT, "ARGUMENT_ABSENT", "an argument is missing"},
        {VELTRANCORD_STORE_FAILED, "STORE_FAILED", "the store could not apply the value"},
        {VELTRANCORD_DENIED, "DENIED", "denied, or an unknown user or group"},
        {VELTRANCORD_UNREACHABLE, "UNREACHABLE", "the service cannot be reached"},
        {VELTRANCORD_TIMED_OUT, "TIMED_OUT", "no reply within the time allowed"},
        {VELTRANCORD_NO_REPLY, "NO_REPLY", "the service closed the connection without a reply"},
        {VELTRANCORD_BROKEN_REPLY, "BROKEN_REPLY", "the reply is broken off"},
        {VELTRANCORD_REPLY_OVER_CAP, "REPLY_OVER_CAP", "the reply is larger than accepted"},
        {VELTRANCORD_NO_MEMORY, "NO_MEMORY", "out of memory"},
        {VELTRANCORD_SYSTEM_ERROR, "SYSTEM_ERROR", "a system call failed"},
        {VELTRANCORD_INVALID_USE, "INVALID_USE", "called without what it needs"},
        {VELTRANCORD_PATH_EMPTY, "PATH_EMPTY", "a path without a component"},
        {VELTRANCORD_PATH_HAS_EQUALS, "PATH_HAS_EQUALS", "a path cannot hold '='"},
        {VELTRANCORD_PATH_HAS_LINE_FEED, "PATH_HAS_LINE_FEED", "a path cannot hold a line feed"},
        {VELTRANCORD_VALUE_HAS_LINE_FEED, "VALUE_HAS_LINE_FEED", "a value cannot hold a line feed"},
        {VELTRANCORD_FIELD_HAS_SEPARATOR, "FIELD_HAS_SEPARATOR", "this field cannot hold '&'"},
        {VELTRANCORD_PATH_OVER_BOUND, "PATH_OVER_BOUND", "path over its bound"},
        {VELTRANCORD_VALUE_OVER_BOUND, "VALUE_OVER_BOUND", "value over its bound"},
        {VELTRANCORD_ATTRIBUTE_OVER_BOUND, "ATTRIBUTE_OVER_BOUND", "attribute over its bound"},
        {VELTRANCORD_FILE_NAME_OVER_BOUND, "FILE_NAME_OVER_BOUND", "file name over its bound"},
        {VELTRANCORD_FIELD_OVER_BOUND, "FIELD_OVER_BOUND", "field over its bound"},
        {VELTRANCORD_LOG_TEXT_UNREADABLE, "LOG_TEXT_UNREADABLE",
         "a log text that is empty or holds ':' could not be read back"},
        {VELTRANCORD_COMMAND_HAS_SEPARATOR, "COMMAND_HAS_SEPARATOR",
         "a command name cannot be empty or hold ':'"},
        {VELTRANCORD_FIELD_EMPTY, "FIELD_EMPTY", "this field cannot be empty"},
        {VELTRANCORD_NOT_ALLOWED, "NOT_ALLOWED",
         "the description of the settings does not allow it"},
    };
    size_t index = 0;
    for (index = 0; index < sizeof entries / sizeof entries[0]; ++index) {
        if (entries[index].code == result) {
            return &entries[index];
        }
    }
    return NULL;
}

const char* veltrancord_result_text(int32_t result) {
    const struct result_entry* entry = find_entry(result);
    return entry != NULL ? entry->text : "result of the service";
}

const char* veltrancord_result_name(int32_t result) {
    const struct result_entry* entry = find_entry(result);
    return entry != NULL ? entry->name : NULL;
}
