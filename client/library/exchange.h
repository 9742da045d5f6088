/* One request and its reply: the one place that frames bytes. */
#ifndef VELTRANCORD_EXCHANGE_H
#define VELTRANCORD_EXCHANGE_H

#include <veltrancord/client.h>

/* The service uses one number as status, count and length; the command tells which it is. */
enum reply_shape {
    reply_is_code,  /* nothing follows the number */
    reply_has_text, /* as many bytes follow as a positive number says */
    reply_is_either /* the service's closing of the connection tells */
};

/* As veltrancord_exchange(), for a reply of a known shape. Clears and fills client->error. */
int32_t exchange(struct veltrancord_client* client, const char* command, const void* argument,
                 size_t length, enum reply_shape shape, struct veltrancord_reply* reply);

#endif
