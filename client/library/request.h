/* The argument text of a request while it is put together.
 *
 * Short requests, nearly all, stay in the structure itself; longer ones move to allocated memory.
 * The caller calls request_release() in the end in any case. */
#ifndef VELTRANCORD_REQUEST_H
#define VELTRANCORD_REQUEST_H

#include <veltrancord/client.h>

struct request {
    char* text; /* `short_text` or allocated; `length` bytes, no NUL */
    size_t length;
    size_t size;
    int failed; /* memory could not be had; the text is not whole */
    char short_text[1024];
};

void request_init(struct request* request);
void request_append(struct request* request, const char* bytes, size_t length);
void request_append_text(struct request* request, const char* text);
void request_release(struct request* request);

/* Sends the request for a command that answers with a code or a count alone, and releases it. */
int32_t request_code(struct veltrancord_client* client, const char* command,
                     struct request* request);

/* The same for a command whose positive results announce a text: one without is broken. */
int32_t request_reply(struct veltrancord_client* client, const char* command,
                      struct request* request, struct veltrancord_reply* reply);

/* The same for one text that goes into the caller's `value` with a NUL; text behind a NUL, which
 * the service fills secrets up with, is cut off. Return: the text's length. */
int32_t request_text(struct veltrancord_client* client, const char* command,
                     struct request* request, char* value, size_t size);

#endif
