/* Starts the ARM program named by PROGRAM under the emulator, with the name and arguments that it
 * was started with itself: so the end-to-end tests take it for the program. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argument_count, char** arguments) {
    char** vector = calloc((size_t)argument_count + 5, sizeof *vector);
    int index = 0;
    if (vector == NULL) {
        return 126;
    }
    vector[0] = "qemu-arm";
    vector[1] = "-0";
    vector[2] = arguments[0];
    vector[3] = PROGRAM;
    for (index = 1; index < argument_count; ++index) {
        vector[3 + index] = arguments[index];
    }
    (void)execv("/usr/bin/qemu-arm", vector);
    perror("qemu-arm");
    free(vector);
    return 127;
}
