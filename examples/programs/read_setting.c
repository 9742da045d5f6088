/* Prints the value of one setting: read_setting Network.Lan.Mtu */
#include <stdio.h>
#include <veltrancord/client.h>

int main(int argument_count, char** arguments) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    char value[VELTRANCORD_MAX_VALUE + 1];
    char reason[200];
    if (argument_count != 2) {
        (void)fprintf(stderr, "usage: %s PATH\n", arguments[0]);
        return 2;
    }
    if (veltrancord_get(&client, arguments[1], value, sizeof value) < 0) {
        (void)veltrancord_error_text(&client, reason, sizeof reason);
        (void)fprintf(stderr, "%s\n", reason);
        return 1;
    }
    (void)puts(value);
    return 0;
}
