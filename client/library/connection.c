#include "connection.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "failure.h"

enum { first_pause_ms = 1, longest_pause_ms = 50 };

static int fill_address(struct sockaddr_un* address, const char* path) {
    const size_t length = strlen(path);
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (length >= sizeof address->sun_path) {
        return 0;
    }
    memcpy(address->sun_path, path, length);
    return 1;
}

/* connect() on a Unix socket cannot be polled for: when the backlog is full a non-blocking one
 * fails at once. So it blocks, in the kernel's queue, and the send time-out bounds it. */
static void bound_connect(int fd, const struct deadline* deadline) {
    const int left = deadline_left(deadline);
    struct timeval timeout = {0, 1};
    if (left < 0) {
        return;
    }
    if (left > 0) {
        timeout.tv_sec = left / 1000;
        timeout.tv_usec = (suseconds_t)(left % 1000) * 1000;
    }
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

static int is_worth_retrying(const struct veltrancord_client* client, int reason) {
    return reason == ECONNREFUSED || (reason == ENOENT && client->wait_for_socket != 0);
}

/* A program with the set-user-id bit asks the service with its owner's rights: where, its starter
 * must not choose. */
static const char* socket_path_of(const struct veltrancord_client* client) {
    const char* path = client->socket_path;
    if (path == NULL || path[0] == '\0') {
        path = secure_getenv("VELTRANCORD_SOCKET");
    }
    return path != NULL && path[0] != '\0' ? path : VELTRANCORD_DEFAULT_SOCKET;
}

int32_t connection_open(struct veltrancord_client* client, struct connection* connection) {
    struct sockaddr_un address;
    const char* path = socket_path_of(client);
    int pause_ms = first_pause_ms;
    connection->fd = -1;
    connection->deadline = deadline_after(client->timeout_ms);
    if (!fill_address(&address, path)) {
        return about(client, path, fail_system(client, VELTRANCORD_UNREACHABLE, ENAMETOOLONG));
    }
    for (;;) {
        int reason = 0;
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            return fail_system(client, VELTRANCORD_SYSTEM_ERROR, errno);
        }
        do {
            bound_connect(fd, &connection->deadline);
            if (connect(fd, (const struct sockaddr*)&address, sizeof address) == 0) {
                connection->fd = fd;
                return VELTRANCORD_OK;
            }
            reason = errno;
        } while (reason == EINTR && deadline_left(&connection->deadline) != 0);
        (void)close(fd);
        if (reason == EAGAIN || reason == EINTR) {
            return fail_system(client, VELTRANCORD_TIMED_OUT, 0);
        }
        if (!is_worth_retrying(client, reason) ||
            !deadline_sleep(&connection->deadline, pause_ms)) {
            return about(client, path, fail_system(client, VELTRANCORD_UNREACHABLE, reason));
        }
        pause_ms = pause_ms * 2 < longest_pause_ms ? pause_ms * 2 : longest_pause_ms;
    }
}

static int32_t wait_for(struct veltrancord_client* client, struct connection* connection,
                        short events) {
    struct pollfd waited = {connection->fd, events, 0};
    for (;;) {
        const int left = deadline_left(&connection->deadline);
        const int ready = poll(&waited, 1, left);
        if (ready > 0) {
            return VELTRANCORD_OK;
        }
        if (ready == 0) {
            if (left == 0 || deadline_left(&connection->deadline) == 0) {
                return fail(client, VELTRANCORD_TIMED_OUT);
            }
        } else if (errno != EINTR) {
            return fail_system(client, VELTRANCORD_SYSTEM_ERROR, errno);
        }
    }
}

static void skip_sent(struct msghdr* message, size_t sent) {
    while (message->msg_iovlen > 0 && sent >= message->msg_iov->iov_len) {
        sent -= message->msg_iov->iov_len;
        ++message->msg_iov;
        --message->msg_iovlen;
    }
    if (message->msg_iovlen > 0) {
        message->msg_iov->iov_base = (char*)message->msg_iov->iov_base + sent;
        message->msg_iov->iov_len -= sent;
    }
}

/* The service has closed or was killed in the middle. */
static int is_cut(int reason) {
    return reason == EPIPE || reason == ECONNRESET;
}

int32_t connection_send(struct veltrancord_client* client, struct connection* connection,
                        struct iovec* parts, size_t count) {
    struct msghdr message;
    memset(&message, 0, sizeof message);
    message.msg_iov = parts;
    message.msg_iovlen = count;
    skip_sent(&message, 0);
    while (message.msg_iovlen > 0) {
        const ssize_t sent = sendmsg(connection->fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            skip_sent(&message, (size_t)sent);
        } else if (errno == EAGAIN) {
            const int32_t waited = wait_for(client, connection, POLLOUT);
            if (waited != VELTRANCORD_OK) {
                return waited;
            }
        } else if (errno != EINTR) {
            const int reason = errno;
            return fail_system(
                client, is_cut(reason) ? VELTRANCORD_NO_REPLY : VELTRANCORD_SYSTEM_ERROR, reason);
        }
    }
    return VELTRANCORD_OK;
}

int64_t connection_receive(struct veltrancord_client* client, struct connection* connection,
                           struct iovec* parts, size_t count) {
    struct msghdr message;
    memset(&message, 0, sizeof message);
    message.msg_iov = parts;
    message.msg_iovlen = count;
    for (;;) {
        ssize_t received = 0;
        const int32_t waited = wait_for(client, connection, POLLIN);
        if (waited != VELTRANCORD_OK) {
            return waited;
        }
        received = recvmsg(connection->fd, &message, MSG_DONTWAIT);
        if (received >= 0) {
            return received;
        }
        if (is_cut(errno)) {
            return 0;
        }
        if (errno != EINTR && errno != EAGAIN) {
            return fail_system(client, VELTRANCORD_SYSTEM_ERROR, errno);
        }
    }
}

void connection_close(struct connection* connection) {
    const int saved = errno;
    (void)close(connection->fd);
    connection->fd = -1;
    errno = saved;
}
