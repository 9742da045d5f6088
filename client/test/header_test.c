/* The library as a C99 program sees it: the header compiles, the initialisers are constant, each
 * function links, and none touches what it is not given. Exits with 0 when all is well. */
#include <stdio.h>
#include <string.h>
#include <veltrancord/client.h>

static int failures = 0;

static void expect(int holds, const char* what) {
    if (!holds) {
        (void)fprintf(stderr, "fails: %s\n", what);
        ++failures;
    }
}

static struct veltrancord_client shared_default = VELTRANCORD_CLIENT_INIT;

static void ask_everything(struct veltrancord_client* client) {
    struct veltrancord_reply reply = VELTRANCORD_REPLY_INIT(NULL, 0, 4096);
    struct veltrancord_setting setting = {"A.B", "1"};
    struct veltrancord_log_record record;
    struct veltrancord_watcher* watcher = NULL;
    const char* path = "A.*";
    const int32_t usual = VELTRANCORD_DEFAULT_LIFETIME;
    char text[16];
    int32_t results[32];
    size_t count = 0;
    size_t index = 0;
    memset(&record, 0, sizeof record);
    record.text[0] = 'x';
    results[count++] = veltrancord_exchange(client, "read", "A", 1, &reply);
    results[count++] = veltrancord_ping(client);
    results[count++] = veltrancord_get(client, "A.B", text, sizeof text);
    results[count++] = veltrancord_read(client, "A.*", &reply);
    results[count++] = veltrancord_read_with_level(client, "A.*", 1, &reply);
    results[count++] = veltrancord_read_visible(client, "A.*", &reply);
    results[count++] = veltrancord_write(client, &setting, 1);
    results[count++] = veltrancord_write_memory(client, &setting, 1);
    results[count++] = veltrancord_write_attributes(client, &setting, 1);
    results[count++] = veltrancord_sync_memory(client);
    results[count++] = veltrancord_remove(client, "A.B");
    results[count++] = veltrancord_get_attribute(client, "A.B", text, sizeof text);
    results[count++] = veltrancord_read_attributes(client, "A.#", &reply);
    results[count++] = veltrancord_download(client, "/f");
    results[count++] = veltrancord_backup(client, NULL);
    results[count++] = veltrancord_log_add(client, &record);
    results[count++] = veltrancord_log_add_with_time(client, &record);
    results[count++] = veltrancord_log_read(client, VELTRANCORD_LOG_NEWEST, -1, &record, 1);
    results[count++] = veltrancord_log_count(client);
    results[count++] = veltrancord_group_may(client, "g", "p", NULL);
    results[count++] = veltrancord_user_may_cgi(client, "u", "c", NULL);
    results[count++] = veltrancord_user_group(client, "u", text, sizeof text);
    results[count++] = veltrancord_list_permits(client, &reply);
    results[count++] = veltrancord_set_session(client, "s");
    results[count++] = veltrancord_check_session(client, "s", usual);
    results[count++] = veltrancord_compare_captcha(client, "v", "c", 0, usual);
    results[count++] = veltrancord_watch(client, &path, 1, "/", 4096, &watcher);
    expect(watcher == NULL, "a watch that fails gives no watcher");
    veltrancord_watch_end(watcher);
    for (index = 0; index < count; ++index) {
        expect(results[index] == VELTRANCORD_UNREACHABLE, "a missing service is unreachable");
    }
    expect(reply.allocated == NULL && reply.text[0] == '\0', "a failed reply is empty");
}

int main(void) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    struct veltrancord_client initialised;
    veltrancord_client_init(&initialised);
    expect(initialised.timeout_ms == client.timeout_ms, "both ways to initialise agree");
    expect(shared_default.socket_path == NULL, "the initialiser is constant");
    client.socket_path = "/nonexistent/socket";
    ask_everything(&client);
    return failures == 0 ? 0 : 1;
}
