/* A CGI program: shows the setting that the query string names to whom the deny filter lets.
 * The web server puts the user's name into REMOTE_USER; the session is in the cookie "session". */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <veltrancord/client.h>

static int answer(const char* status, const char* text) {
    (void)printf("Status: %s\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n%s\n", status, text);
    return 0;
}

static int copy_session(const char* cookies, char* session, size_t size) {
    const char* start = strstr(cookies, "session=");
    size_t length = 0;
    if (start == NULL) {
        return 0;
    }
    start += strlen("session=");
    length = strcspn(start, ";");
    if (length == 0 || length >= size) {
        return 0;
    }
    memcpy(session, start, length);
    session[length] = '\0';
    return 1;
}

int main(void) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    const char* user = getenv("REMOTE_USER");
    const char* query = getenv("QUERY_STRING");
    const char* cookies = getenv("HTTP_COOKIE");
    char session[128];
    char value[VELTRANCORD_MAX_VALUE + 1];
    int32_t result = 0;
    client.socket_path = getenv("VELTRANCORD_SOCKET");
    client.timeout_ms = 2000; /* a page must come, even when the service does not answer */
    if (user == NULL || query == NULL || cookies == NULL ||
        !copy_session(cookies, session, sizeof session) ||
        veltrancord_check_session(&client, session, 600) != VELTRANCORD_OK) {
        return answer("403 Forbidden", "log in first");
    }
    if (veltrancord_user_may_cgi(&client, user, "show", query) != VELTRANCORD_OK) {
        return answer("403 Forbidden", "not for you");
    }
    result = veltrancord_get(&client, query, value, sizeof value);
    if (result < 0) {
        return answer(result == VELTRANCORD_NOT_FOUND ? "404 Not Found" : "503 Unavailable",
                      veltrancord_result_text(result));
    }
    return answer("200 OK", value);
}
