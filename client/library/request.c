#include "request.h"

#include <stdlib.h>
#include <string.h>

#include "exchange.h"
#include "failure.h"

void request_init(struct request* request) {
    request->text = request->short_text;
    request->length = 0;
    request->size = sizeof request->short_text;
    request->failed = 0;
}

static int grow(struct request* request, size_t needed) {
    size_t size = request->size;
    char* text = NULL;
    while (size < needed) {
        if (size > SIZE_MAX / 2) {
            return 0;
        }
        size *= 2;
    }
    text = malloc(size);
    if (text == NULL) {
        return 0;
    }
    memcpy(text, request->text, request->length);
    if (request->text != request->short_text) {
        free(request->text);
    }
    request->text = text;
    request->size = size;
    return 1;
}

void request_append(struct request* request, const char* bytes, size_t length) {
    if (request->failed) {
        return;
    }
    if (length > request->size - request->length &&
        (length > SIZE_MAX - request->length || !grow(request, request->length + length))) {
        request->failed = 1;
        return;
    }
    memcpy(request->text + request->length, bytes, length);
    request->length += length;
}

void request_append_text(struct request* request, const char* text) {
    request_append(request, text, strlen(text));
}

void request_release(struct request* request) {
    if (request->text != request->short_text) {
        free(request->text);
    }
    request_init(request);
}

static int32_t send_request(struct veltrancord_client* client, const char* command,
                            struct request* request, enum reply_shape shape,
                            struct veltrancord_reply* reply) {
    int32_t result = 0;
    if (request->failed) {
        result = fail(client, VELTRANCORD_NO_MEMORY);
    } else {
        result = exchange(client, command, request->text, request->length, shape, reply);
    }
    request_release(request);
    return result;
}

int32_t request_code(struct veltrancord_client* client, const char* command,
                     struct request* request) {
    struct veltrancord_reply nothing = VELTRANCORD_REPLY_INIT(NULL, 0, 0);
    return send_request(client, command, request, reply_is_code, &nothing);
}

int32_t request_reply(struct veltrancord_client* client, const char* command,
                      struct request* request, struct veltrancord_reply* reply) {
    return send_request(client, command, request, reply_has_text, reply);
}

int32_t request_text(struct veltrancord_client* client, const char* command,
                     struct request* request, char* value, size_t size) {
    struct veltrancord_reply reply = VELTRANCORD_REPLY_INIT(value, size, 0);
    const int32_t result = send_request(client, command, request, reply_has_text, &reply);
    if (result < 0) {
        return result;
    }
    if (reply.length == 0) {
        value[0] = '\0';
    }
    return (int32_t)strlen(reply.text);
}
