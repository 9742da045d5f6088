/* The least program that uses the installed library: prints one value. */
#include <stdio.h>
#include <veltrancord/client.h>

int main(void) {
    struct veltrancord_client client = VELTRANCORD_CLIENT_INIT;
    char value[32];
    return veltrancord_get(&client, "System.Name", value, sizeof value) > 0 ? puts(value) < 0 : 1;
}
