/* What the library refuses before it connects: text that the service would cut, split or misread.
 * Each returns VELTRANCORD_OK or a failure noted in the client. */
#ifndef VELTRANCORD_BOUNDS_H
#define VELTRANCORD_BOUNDS_H

#include <veltrancord/client.h>

int32_t check_path(struct veltrancord_client* client, const char* path, size_t bound);

/* A path whose last component names an attribute, or is one of the marks "*" and "#". */
int32_t check_attribute_path(struct veltrancord_client* client, const char* path, size_t bound);

/* A value to be written at a path that has been checked. */
int32_t check_value(struct veltrancord_client* client, const struct veltrancord_setting* setting);
int32_t check_attribute_value(struct veltrancord_client* client, const char* value);

/* A field of a command. `separator`: a byte that it may not hold, or 0. */
int32_t check_field(struct veltrancord_client* client, const char* field, char separator);

/* A field that may not be empty either. */
int32_t check_full_field(struct veltrancord_client* client, const char* field, char separator);

int32_t check_file_name(struct veltrancord_client* client, const char* file, size_t bound);

#endif
