#include "failure.h"

#include <stdio.h>
#include <string.h>

static const char cut_mark[] = "...";

void veltrancord_client_init(struct veltrancord_client* client) {
    const struct veltrancord_client initial = VELTRANCORD_CLIENT_INIT;
    *client = initial;
}

void clear_failure(struct veltrancord_client* client) {
    memset(&client->error, 0, sizeof client->error);
}

int32_t fail(struct veltrancord_client* client, int32_t code) {
    client->error.code = code;
    return code;
}

int32_t fail_system(struct veltrancord_client* client, int32_t code, int system_error) {
    client->error.system_error = system_error;
    return fail(client, code);
}

int32_t fail_bound(struct veltrancord_client* client, int32_t code, size_t bound, size_t found) {
    client->error.bound = bound;
    client->error.found = found;
    return fail(client, code);
}

int32_t about(struct veltrancord_client* client, const char* subject, int32_t result) {
    struct veltrancord_error* error = &client->error;
    const size_t length = subject != NULL ? strlen(subject) : 0;
    size_t kept = 0;
    if (error->code == 0 || error->subject[0] != '\0' || length == 0) {
        return result;
    }
    for (kept = 0; kept < length && kept < VELTRANCORD_MAX_SUBJECT; ++kept) {
        const unsigned char byte = (unsigned char)subject[kept];
        error->subject[kept] = subject[kept];
        if (byte < 0x20 || byte == 0x7F) {
            error->subject[kept] = '?';
        }
    }
    error->subject[kept] = '\0';
    if (kept < length) {
        kept -= sizeof cut_mark - 1;
        /* Not in the middle of a character of several bytes. */
        while (kept > 0 && ((unsigned char)subject[kept] & 0xC0U) == 0x80U) {
            --kept;
        }
        memcpy(error->subject + kept, cut_mark, sizeof cut_mark);
    }
    return result;
}

/* strerror() is not safe among threads and strerror_r() has two shapes; this one is in both. */
static void append_system_error(char* text, size_t size, int system_error) {
    char reason[128] = "";
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
    const char* found = strerror_r(system_error, reason, sizeof reason);
#else
    const char* found =
        strerror_r(system_error, reason, sizeof reason) == 0 ? reason : "unknown error";
#endif
    (void)snprintf(text, size, ": %s", found);
}

size_t veltrancord_error_text(const struct veltrancord_client* client, char* text, size_t size) {
    const struct veltrancord_error* error = &client->error;
    char detail[192] = "";
    int length = 0;
    if (error->bound != 0 || error->found != 0) {
        (void)snprintf(detail, sizeof detail, ": %zu bytes, at most %zu", error->found,
                       error->bound);
    } else if (error->system_error != 0) {
        append_system_error(detail, sizeof detail, error->system_error);
    }
    length = snprintf(text, size, "%s%s%s%s", error->subject, error->subject[0] != '\0' ? ": " : "",
                      veltrancord_result_text(error->code), detail);
    return length > 0 ? (size_t)length : 0;
}
