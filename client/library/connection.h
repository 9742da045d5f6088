/* A connection to the service's socket with a deadline over all that is done on it. */
#ifndef VELTRANCORD_CONNECTION_H
#define VELTRANCORD_CONNECTION_H

#include <stddef.h>
#include <sys/uio.h>
#include <veltrancord/client.h>

#include "deadline.h"

struct connection {
    int fd; /* closed by connection_close() */
    struct deadline deadline;
};

/* Connects; a refused connection (and with wait_for_socket a missing socket) is tried again until
 * the deadline. Return: VELTRANCORD_OK, or a failure noted in the client. */
int32_t connection_open(struct veltrancord_client* client, struct connection* connection);

/* Sends all of `parts`, which are used up, in one go as far as the socket takes it. No SIGPIPE
 * reaches the caller. Return: as above. */
int32_t connection_send(struct veltrancord_client* client, struct connection* connection,
                        struct iovec* parts, size_t count);

/* Receives into `parts` what has come, and waits for the first byte. Return: how many bytes, 0 at
 * the end, or a failure. */
int64_t connection_receive(struct veltrancord_client* client, struct connection* connection,
                           struct iovec* parts, size_t count);

void connection_close(struct connection* connection);

#endif
