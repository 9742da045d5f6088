#include "exchange.h"

#include <stdlib.h>
#include <string.h>

#include "connection.h"
#include "failure.h"

enum { code_size = 4, header_size = 5, start_code = '?' };

/* sendmsg() only reads, but its parts are declared as writable. */
static void* as_part(const void* bytes) {
    void* part = NULL;
    memcpy(&part, &bytes, sizeof part);
    return part;
}

static void store_length(unsigned char* bytes, uint32_t value) {
    bytes[0] = (unsigned char)(value & 0xFFU);
    bytes[1] = (unsigned char)(value >> 8 & 0xFFU);
    bytes[2] = (unsigned char)(value >> 16 & 0xFFU);
    bytes[3] = (unsigned char)(value >> 24);
}

static int32_t load_code(const unsigned char* bytes) {
    const uint32_t value = (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 |
                           (uint32_t)bytes[3] << 24;
    int32_t code = 0;
    memcpy(&code, &value, sizeof code);
    return code;
}

static int32_t send_frame(struct veltrancord_client* client, struct connection* connection,
                          const char* command, const void* argument, size_t length) {
    const size_t command_length = strlen(command);
    unsigned char header[header_size];
    struct iovec parts[4];
    if (length > UINT32_MAX - command_length - 1) {
        return fail_bound(client, VELTRANCORD_FIELD_OVER_BOUND, UINT32_MAX - command_length - 1,
                          length);
    }
    header[0] = start_code;
    store_length(header + 1, (uint32_t)(command_length + 1 + length));
    parts[0].iov_base = header;
    parts[0].iov_len = sizeof header;
    parts[1].iov_base = as_part(command);
    parts[1].iov_len = command_length;
    parts[2].iov_base = as_part(":");
    parts[2].iov_len = 1;
    parts[3].iov_base = as_part(argument);
    parts[3].iov_len = length;
    return connection_send(client, connection, parts, 4);
}

/* Receives the code, and with the same call as much of the text behind it as is there and fits
 * the caller's buffer. Return: how many bytes of text came along, or a failure. */
static int64_t receive_code(struct veltrancord_client* client, struct connection* connection,
                            struct veltrancord_reply* reply) {
    unsigned char code[code_size];
    size_t received = 0;
    while (received < code_size) {
        struct iovec parts[2];
        int64_t count = 0;
        parts[0].iov_base = code + received;
        parts[0].iov_len = code_size - received;
        parts[1].iov_base = reply->buffer;
        parts[1].iov_len = reply->size;
        count = connection_receive(client, connection, parts, 2);
        if (count < 0) {
            return count;
        }
        if (count == 0) {
            return fail(client, received == 0 ? VELTRANCORD_NO_REPLY : VELTRANCORD_BROKEN_REPLY);
        }
        received += (size_t)count;
    }
    reply->result = load_code(code);
    return (int64_t)(received - code_size);
}

/* Finds room for the `length` bytes of the reply, of which `received` lie in the caller's buffer.
 * Return: the room, or null with the failure noted. */
static char* room_for(struct veltrancord_client* client, struct veltrancord_reply* reply,
                      size_t length, size_t received) {
    size_t cap = reply->cap;
    if (length < reply->size) {
        return reply->buffer;
    }
    if (reply->size > 0 && cap < reply->size - 1) {
        cap = reply->size - 1;
    }
    if (length > cap) {
        (void)fail_bound(client, VELTRANCORD_REPLY_OVER_CAP, cap, length);
        return NULL;
    }
    reply->allocated = malloc(length + 1);
    if (reply->allocated == NULL) {
        (void)fail(client, VELTRANCORD_NO_MEMORY);
        return NULL;
    }
    if (received > 0) {
        memcpy(reply->allocated, reply->buffer, received);
    }
    return reply->allocated;
}

/* Receives the text of which `received` bytes have come. Return: VELTRANCORD_OK or a failure. */
static int32_t receive_text(struct veltrancord_client* client, struct connection* connection,
                            enum reply_shape shape, size_t received,
                            struct veltrancord_reply* reply) {
    const size_t length = (size_t)reply->result;
    char first = 0;
    char* room = NULL;
    struct iovec part;
    if (shape == reply_is_either && received == 0) {
        /* A count looks like the length of a text until the service has closed. */
        int64_t count = 0;
        part.iov_base = &first;
        part.iov_len = 1;
        count = connection_receive(client, connection, &part, 1);
        if (count <= 0) {
            return (int32_t)count;
        }
        room = room_for(client, reply, length, 0);
        if (room == NULL) {
            return client->error.code;
        }
        room[0] = first;
        received = 1;
    } else {
        room = received <= length ? room_for(client, reply, length, received) : NULL;
        if (room == NULL) {
            return received <= length ? client->error.code : fail(client, VELTRANCORD_BROKEN_REPLY);
        }
    }
    while (received < length) {
        int64_t count = 0;
        part.iov_base = room + received;
        part.iov_len = length - received;
        count = connection_receive(client, connection, &part, 1);
        if (count < 0) {
            return (int32_t)count;
        }
        if (count == 0) {
            return fail(client, VELTRANCORD_BROKEN_REPLY);
        }
        received += (size_t)count;
    }
    room[length] = '\0';
    reply->text = room;
    reply->length = length;
    return VELTRANCORD_OK;
}

static int32_t exchange_on(struct veltrancord_client* client, struct connection* connection,
                           const char* command, const void* argument, size_t length,
                           enum reply_shape shape, struct veltrancord_reply* reply) {
    int64_t came = 0;
    int32_t result = send_frame(client, connection, command, argument, length);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    came = receive_code(client, connection, reply);
    if (came < 0) {
        return (int32_t)came;
    }
    if (reply->result <= 0 || shape == reply_is_code) {
        if (came > 0) {
            return fail(client, VELTRANCORD_BROKEN_REPLY);
        }
        return reply->result < 0 ? fail(client, reply->result) : reply->result;
    }
    result = receive_text(client, connection, shape, (size_t)came, reply);
    return result == VELTRANCORD_OK ? reply->result : result;
}

int32_t exchange(struct veltrancord_client* client, const char* command, const void* argument,
                 size_t length, enum reply_shape shape, struct veltrancord_reply* reply) {
    struct connection connection;
    int32_t result = 0;
    clear_failure(client);
    reply->text = "";
    reply->length = 0;
    reply->result = 0;
    reply->allocated = NULL;
    result = connection_open(client, &connection);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    result = exchange_on(client, &connection, command, argument, length, shape, reply);
    connection_close(&connection);
    if (client->error.code != 0) {
        veltrancord_reply_release(reply);
    }
    return result;
}

void veltrancord_reply_release(struct veltrancord_reply* reply) {
    free(reply->allocated);
    reply->allocated = NULL;
    reply->text = "";
    reply->length = 0;
}

int32_t veltrancord_exchange(struct veltrancord_client* client, const char* command,
                             const void* argument, size_t length, struct veltrancord_reply* reply) {
    clear_failure(client);
    if (command == NULL || reply == NULL || (argument == NULL && length > 0)) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    if (command[0] == '\0' || strchr(command, ':') != NULL) {
        return fail(client, VELTRANCORD_COMMAND_HAS_SEPARATOR);
    }
    return exchange(client, command, argument, length, reply_is_either, reply);
}

int32_t veltrancord_ping(struct veltrancord_client* client) {
    /* No command of that name exists: the service answers it without any follow-up step. */
    struct veltrancord_reply nothing = VELTRANCORD_REPLY_INIT(NULL, 0, 0);
    const int32_t result = exchange(client, "ping", NULL, 0, reply_is_code, &nothing);
    if (result == VELTRANCORD_NOT_FOUND) {
        clear_failure(client);
        return VELTRANCORD_OK;
    }
    return result < 0 ? result : fail(client, VELTRANCORD_BROKEN_REPLY);
}

int32_t veltrancord_wait(struct veltrancord_client* client) {
    const struct deadline deadline = deadline_after(client->timeout_ms);
    struct veltrancord_client attempt = *client;
    int32_t result = 0;
    attempt.wait_for_socket = 1;
    do {
        attempt.timeout_ms = deadline_left(&deadline);
        result = veltrancord_ping(&attempt);
        /* A worker that has just died answers no more, but another one may be on its way. */
    } while (result == VELTRANCORD_NO_REPLY && deadline_sleep(&deadline, 10));
    client->error = attempt.error;
    return result;
}
