/* Watching: the kernel tells that a file was replaced, the service what it holds now. */
#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "bounds.h"
#include "deadline.h"
#include "failure.h"
#include "snapshot.h"

struct watched_path {
    char* path;
    size_t document_length; /* of its first component; 0: any file may concern it */
    int stale;              /* a file was replaced since it was read */
    struct snapshot held;   /* as it was told to the caller */
};

struct veltrancord_watcher {
    struct veltrancord_client* client;
    int fd;
    int gone; /* the directory is */
    char* directory;
    size_t cap;
    size_t count; /* of `paths` that are in use */

    /* The path whose changes are being told, `count` when there is none, and what it holds now. */
    size_t telling;
    struct snapshot now;
    struct comparison comparison;

    struct watched_path paths[];
};

/* How long the name of the path's document is, if its file has that very name: a document whose
 * name the service escapes has another. */
static size_t document_length(const char* path) {
    const size_t length = strcspn(path, ".");
    size_t index = 0;
    for (index = 0; index < length; ++index) {
        const char letter = path[index];
        if (!((letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
              (letter >= '0' && letter <= '9') || letter == '-')) {
            return 0;
        }
    }
    return length;
}

/* Return: VELTRANCORD_OK with what the path holds now, which may be nothing. */
static int32_t read_now(struct veltrancord_watcher* watcher, const char* path,
                        struct snapshot* snapshot) {
    struct veltrancord_reply reply = VELTRANCORD_REPLY_INIT(NULL, 0, watcher->cap);
    const int32_t result = veltrancord_read(watcher->client, path, &reply);
    if (result < 0 && result != VELTRANCORD_NOT_FOUND) {
        return result;
    }
    clear_failure(watcher->client);
    if (!snapshot_take(snapshot, reply.allocated)) {
        return about(watcher->client, path, fail(watcher->client, VELTRANCORD_NO_MEMORY));
    }
    return VELTRANCORD_OK;
}

static int32_t fail_directory(const struct veltrancord_watcher* watcher, int reason) {
    return about(watcher->client, watcher->directory,
                 fail_system(watcher->client, VELTRANCORD_SYSTEM_ERROR, reason));
}

/* The watch is set before the first read, so that no change falls between them. */
static int32_t begin(struct veltrancord_watcher* watcher, const char* const* paths, size_t count,
                     const char* directory) {
    const uint32_t events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                            IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    watcher->directory = strdup(directory);
    if (watcher->directory == NULL) {
        return fail(watcher->client, VELTRANCORD_NO_MEMORY);
    }
    watcher->fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watcher->fd < 0 || inotify_add_watch(watcher->fd, directory, events) < 0) {
        return fail_directory(watcher, errno);
    }
    for (; watcher->count < count; ++watcher->count) {
        struct watched_path* one = &watcher->paths[watcher->count];
        int32_t result = 0;
        one->path = strdup(paths[watcher->count]);
        if (one->path == NULL) {
            return fail(watcher->client, VELTRANCORD_NO_MEMORY);
        }
        one->document_length = document_length(one->path);
        result = read_now(watcher, one->path, &one->held);
        if (result != VELTRANCORD_OK) {
            free(one->path);
            one->path = NULL;
            return result;
        }
    }
    watcher->telling = count;
    return VELTRANCORD_OK;
}

int32_t veltrancord_watch(struct veltrancord_client* client, const char* const* paths, size_t count,
                          const char* directory, size_t cap, struct veltrancord_watcher** watcher) {
    struct veltrancord_watcher* made = NULL;
    int32_t result = 0;
    size_t index = 0;
    clear_failure(client);
    if (watcher == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    *watcher = NULL;
    if (paths == NULL || count == 0 || count > INT_MAX) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    for (index = 0; index < count; ++index) {
        result = check_path(client, paths[index], VELTRANCORD_MAX_READ_PATH);
        if (result != VELTRANCORD_OK) {
            client->error.index = index;
            return about(client, paths[index], result);
        }
    }
    made = calloc(1, sizeof *made + count * sizeof made->paths[0]);
    if (made == NULL) {
        return fail(client, VELTRANCORD_NO_MEMORY);
    }
    made->client = client;
    made->fd = -1;
    made->cap = cap;
    result =
        begin(made, paths, count, directory != NULL ? directory : VELTRANCORD_DEFAULT_DIRECTORY);
    if (result != VELTRANCORD_OK) {
        veltrancord_watch_end(made);
        return result;
    }
    *watcher = made;
    return VELTRANCORD_OK;
}

/* Notes for which paths an event may mean a change. */
static void take_event(struct veltrancord_watcher* watcher, const struct inotify_event* event,
                       const char* name) {
    size_t index = 0;
    if ((event->mask & (IN_IGNORED | IN_UNMOUNT | IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
        watcher->gone = 1;
    }
    /* Files that begin with a dot are none of documents, but helpers on their way to be one. */
    if (event->len > 0 && name[0] == '.') {
        return;
    }
    for (index = 0; index < watcher->count; ++index) {
        struct watched_path* one = &watcher->paths[index];
        /* Without a name the kernel's queue was full: any file may have changed. */
        if (event->len == 0 || one->document_length == 0 ||
            (strlen(name) == one->document_length &&
             memcmp(name, one->path, one->document_length) == 0)) {
            one->stale = 1;
        }
    }
}

/* Takes all events that are there. Return: VELTRANCORD_OK, or a failure. */
static int32_t take_events(struct veltrancord_watcher* watcher) {
    char buffer[4096 + sizeof(struct inotify_event) + NAME_MAX + 1];
    for (;;) {
        const ssize_t length = read(watcher->fd, buffer, sizeof buffer);
        size_t offset = 0;
        if (length <= 0) {
            if (length < 0 && errno == EINTR) {
                continue;
            }
            return length == 0 || errno == EAGAIN ? VELTRANCORD_OK : fail_directory(watcher, errno);
        }
        while (offset < (size_t)length) {
            struct inotify_event event;
            memcpy(&event, buffer + offset, sizeof event);
            take_event(watcher, &event, buffer + offset + sizeof event);
            offset += sizeof event + event.len;
        }
    }
}

/* Gives the next change of the path that is being told. Return: 1, or 0 when all have been told;
 * what it holds now is then what the next comparison begins with. */
static int tell(struct veltrancord_watcher* watcher, struct veltrancord_change* change) {
    const struct snapshot_entry* before = NULL;
    const struct snapshot_entry* after = NULL;
    const struct snapshot empty = {NULL, NULL, 0};
    if (watcher->telling == watcher->count) {
        return 0;
    }
    if (comparison_next(&watcher->comparison, &before, &after)) {
        /* At least one of them is there. */
        if (before != NULL) {
            change->path = before->path;
        }
        if (after != NULL) {
            change->path = after->path;
        }
        change->before = before != NULL ? before->value : NULL;
        change->after = after != NULL ? after->value : NULL;
        return 1;
    }
    snapshot_release(&watcher->paths[watcher->telling].held);
    watcher->paths[watcher->telling].held = watcher->now;
    watcher->now = empty;
    watcher->telling = watcher->count;
    return 0;
}

/* Reads the next path that may have changed. Return: 1, 0 when there is none, or a failure. */
static int32_t read_stale(struct veltrancord_watcher* watcher) {
    size_t index = 0;
    int32_t result = 0;
    while (index < watcher->count && !watcher->paths[index].stale) {
        ++index;
    }
    if (index == watcher->count) {
        return 0;
    }
    result = read_now(watcher, watcher->paths[index].path, &watcher->now);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    watcher->paths[index].stale = 0;
    watcher->telling = index;
    watcher->comparison.before = &watcher->paths[index].held;
    watcher->comparison.after = &watcher->now;
    watcher->comparison.next_before = 0;
    watcher->comparison.next_after = 0;
    return 1;
}

/* Return: 1 when there is something to take, 0 when the time is over, or a failure. */
static int32_t wait_for_events(const struct veltrancord_watcher* watcher,
                               const struct deadline* deadline) {
    struct pollfd waited = {watcher->fd, POLLIN, 0};
    for (;;) {
        const int left = deadline_left(deadline);
        const int ready = poll(&waited, 1, left);
        if (ready > 0) {
            return 1;
        }
        if (ready == 0 && (left == 0 || deadline_left(deadline) == 0)) {
            return 0;
        }
        if (ready < 0 && errno != EINTR) {
            return fail_directory(watcher, errno);
        }
    }
}

int32_t veltrancord_watch_next(struct veltrancord_watcher* watcher, int32_t timeout_ms,
                               struct veltrancord_change* change) {
    const struct deadline deadline = deadline_after(timeout_ms);
    int last_look = 0;
    clear_failure(watcher->client);
    for (;;) {
        int32_t result = 0;
        if (tell(watcher, change)) {
            return 1;
        }
        result = read_stale(watcher);
        if (result < 0) {
            return result;
        }
        if (result == 0) {
            if (watcher->gone) {
                return fail_directory(watcher, ENOENT);
            }
            /* Saves that change nothing here, one after another, must not hold the caller. */
            if (last_look) {
                return 0;
            }
            last_look = deadline_left(&deadline) == 0;
            result = wait_for_events(watcher, &deadline);
            if (result <= 0) {
                return result;
            }
            result = take_events(watcher);
            if (result < 0) {
                return result;
            }
        }
    }
}

int veltrancord_watch_descriptor(const struct veltrancord_watcher* watcher) {
    return watcher->fd;
}

void veltrancord_watch_end(struct veltrancord_watcher* watcher) {
    size_t index = 0;
    if (watcher == NULL) {
        return;
    }
    for (index = 0; index < watcher->count; ++index) {
        free(watcher->paths[index].path);
        snapshot_release(&watcher->paths[index].held);
    }
    snapshot_release(&watcher->now);
    free(watcher->directory);
    if (watcher->fd >= 0) {
        (void)close(watcher->fd);
    }
    free(watcher);
}
