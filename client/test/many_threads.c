/* Many threads, each with a client of its own, on one service: many_threads THREADS ROUNDS
 * Each changes a setting of its own and reads it back. Ends with 0 when all went well. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <veltrancord/client.h>

struct task {
    int number;
    int rounds;
    int failed;
};

static void fail(struct task* task, const struct veltrancord_client* client, const char* what) {
    char reason[200];
    (void)veltrancord_error_text(client, reason, sizeof reason);
    (void)fprintf(stderr, "thread %d: %s: %s\n", task->number, what, reason);
    task->failed = 1;
}

static void* run(void* argument) {
    struct task* task = argument;
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    int round = 0;
    client.socket_path = getenv("VELTRANCORD_SOCKET");
    client.timeout_ms = -1;
    for (round = 0; round < task->rounds && !task->failed; ++round) {
        char path[64];
        char written[32];
        char value[VELTRANCORD_MAX_VALUE + 1];
        char missing[16];
        char lines[8192];
        struct veltrancord_reply reply =
            VELTRANCORD_REPLY_INIT(lines, sizeof lines, sizeof lines - 1);
        (void)snprintf(path, sizeof path, "Threads.T%d.Value", task->number);
        (void)snprintf(written, sizeof written, "%d.%d", task->number, round);
        if (veltrancord_set(&client, path, written) != 1) {
            fail(task, &client, "set");
        } else if (veltrancord_get(&client, path, value, sizeof value) < 0) {
            fail(task, &client, "get");
        } else if (strcmp(value, written) != 0) {
            fail(task, &client, value);
        } else if (veltrancord_read(&client, "Threads.*", &reply) <= 0 ||
                   strstr(reply.text, written) == NULL) {
            fail(task, &client, "read");
        } else if (veltrancord_get(&client, "Threads.Nothing", missing, sizeof missing) !=
                   VELTRANCORD_NOT_FOUND) {
            fail(task, &client, "what is not there");
        } else if (veltrancord_log_count(&client) < 0) {
            fail(task, &client, "log");
        }
    }
    return NULL;
}

int main(int argument_count, char** arguments) {
    enum { most_threads = 64 };
    static struct task tasks[most_threads];
    static pthread_t threads[most_threads];
    const int count = argument_count == 3 ? atoi(arguments[1]) : 0;
    int failed = 0;
    int number = 0;
    if (count < 1 || count > most_threads) {
        (void)fprintf(stderr, "usage: %s THREADS ROUNDS\n", arguments[0]);
        return 2;
    }
    for (number = 0; number < count; ++number) {
        tasks[number].number = number;
        tasks[number].rounds = atoi(arguments[2]);
        if (pthread_create(&threads[number], NULL, run, &tasks[number]) != 0) {
            return 1;
        }
    }
    for (number = 0; number < count; ++number) {
        (void)pthread_join(threads[number], NULL);
        failed = failed || tasks[number].failed;
    }
    return failed;
}
