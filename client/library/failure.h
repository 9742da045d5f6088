/* Noting in a client what went wrong. Each returns the code it is given. */
#ifndef VELTRANCORD_FAILURE_H
#define VELTRANCORD_FAILURE_H

#include <veltrancord/client.h>

/* Forgets the failure before. */
void clear_failure(struct veltrancord_client* client);

int32_t fail(struct veltrancord_client* client, int32_t code);
int32_t fail_system(struct veltrancord_client* client, int32_t code, int system_error);
int32_t fail_bound(struct veltrancord_client* client, int32_t code, size_t bound, size_t found);

/* Names what a call was about, unless something nearer to the cause has been named already. Does
 * nothing for a call that succeeded or a `subject` that is null. Return: `result`. */
int32_t about(struct veltrancord_client* client, const char* subject, int32_t result);

#endif
