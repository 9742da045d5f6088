/* A CGI program to begin from: shows a setting to whom a permit lets, and nothing else to anybody.
 *
 * The login page has kept the session "user.random" and set it as a cookie. The user is the one of
 * the session that the service knows, never one whom the request names; what may be asked for is in
 * the table, and no secret ever is. Whatever goes wrong, the service away included, shows nothing.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <veltrancord/client.h>

#include "cgi_input.h"

static const struct shown_setting {
    const char* name;   /* by which a request asks for it */
    const char* path;   /* no path comes from a request */
    const char* permit; /* that the user's group must hold */
} shown[] = {
    {"name", "System.Name", "EventLogRead"},
    {"address", "Network.Lan.Address", "NetworkSetup"},
    {"mtu", "Network.Lan.Mtu", "NetworkSetup"},
};

static int answer(const char* status, const char* text) {
    (void)printf(
        "Status: %s\r\nContent-Type: text/plain; charset=utf-8\r\nCache-Control: no-store\r\n"
        "X-Content-Type-Options: nosniff\r\n\r\n%s\n",
        status, text);
    return 0;
}

/* Return: whether the request is of a session that the service keeps; `user` is then its user. */
static int find_user(struct veltrancord_client* client, char* user, size_t size) {
    const char* const cookies = getenv("HTTP_COOKIE");
    char* end = NULL;
    if (cookies == NULL || !cookie_value(cookies, "session", user, size) ||
        veltrancord_check_session(client, user, 600) != VELTRANCORD_OK) {
        return 0;
    }
    end = strrchr(user, '.');
    if (end == NULL || end == user) {
        return 0;
    }
    *end = '\0';
    return 1;
}

static const struct shown_setting* find_setting(const char* name) {
    size_t at = 0;
    for (; at < sizeof shown / sizeof shown[0]; ++at) {
        if (strcmp(shown[at].name, name) == 0) {
            return &shown[at];
        }
    }
    return NULL;
}

int main(void) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    const char* const query = getenv("QUERY_STRING");
    const struct shown_setting* setting = NULL;
    char user[256];
    char name[32];
    char value[VELTRANCORD_MAX_VALUE + 1];
    client.socket_path = getenv("VELTRANCORD_SOCKET");
    client.timeout_ms = 2000; /* a page must come, even when the service does not answer */
    if (!find_user(&client, user, sizeof user)) {
        return answer("403 Forbidden", "log in first");
    }
    if (query != NULL && query_value(query, "show", name, sizeof name)) {
        setting = find_setting(name);
    }
    if (setting == NULL) {
        return answer("404 Not Found", "there is no such page");
    }
    if (veltrancord_user_may(&client, user, setting->permit, NULL) != VELTRANCORD_OK) {
        return answer("403 Forbidden", "not for you");
    }
    if (veltrancord_get(&client, setting->path, value, sizeof value) < 0) {
        return answer("503 Service Unavailable", "try again later");
    }
    return answer("200 OK", value);
}
