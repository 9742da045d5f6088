/* Noting in a client what went wrong. Each returns the code it is given. */
#ifndef VELTRANCORD_FAILURE_H
#define VELTRANCORD_FAILURE_H

#include <veltrancord/client.h>

/* Forgets the failure before. */
void clear_failure(struct veltrancord_client* client);

int32_t fail(struct veltrancord_client* client, int32_t code);
int32_t fail_system(struct veltrancord_client* client, int32_t code, int system_error);
int32_t fail_bound(struct veltrancord_client* client, int32_t code, size_t bound, size_t found);

#endif
