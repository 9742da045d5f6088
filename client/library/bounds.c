#include "bounds.h"

#include <string.h>

#include "failure.h"

static const char* last_component(const char* path) {
    const char* dot = strrchr(path, '.');
    return dot != NULL ? dot + 1 : path;
}

static char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? (char)(letter - 'A' + 'a') : letter;
}

static int is_secret(const char* path) {
    static const char secret_name[] = "password";
    const char* name = last_component(path);
    size_t index = 0;
    while (name[index] != '\0' && lower(name[index]) == secret_name[index]) {
        ++index;
    }
    return name[index] == '\0' && secret_name[index] == '\0';
}

static int is_kept_by_escaping(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '-' || letter == '*';
}

/* The service looks names up in their escaped form, where other bytes take three. */
static size_t escaped_length(const char* name) {
    size_t length = 0;
    for (; *name != '\0'; ++name) {
        length += is_kept_by_escaping(*name) ? 1 : 3;
    }
    return length;
}

int32_t check_path(struct veltrancord_client* client, const char* path, size_t bound) {
    if (path == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    if (strlen(path) > bound) {
        return fail_bound(client, VELTRANCORD_PATH_OVER_BOUND, bound, strlen(path));
    }
    if (path[strspn(path, ".")] == '\0') {
        return fail(client, VELTRANCORD_PATH_EMPTY);
    }
    if (strchr(path, '=') != NULL) {
        return fail(client, VELTRANCORD_PATH_HAS_EQUALS);
    }
    if (strchr(path, '\n') != NULL) {
        return fail(client, VELTRANCORD_PATH_HAS_LINE_FEED);
    }
    return VELTRANCORD_OK;
}

int32_t check_attribute_path(struct veltrancord_client* client, const char* path, size_t bound) {
    const int32_t result = check_path(client, path, bound);
    size_t length = 0;
    if (result != VELTRANCORD_OK) {
        return result;
    }
    length = escaped_length(last_component(path));
    if (length > VELTRANCORD_MAX_ATTRIBUTE_NAME) {
        return fail_bound(client, VELTRANCORD_ATTRIBUTE_OVER_BOUND, VELTRANCORD_MAX_ATTRIBUTE_NAME,
                          length);
    }
    return VELTRANCORD_OK;
}

static int32_t check_text(struct veltrancord_client* client, const char* value, int32_t over_bound,
                          size_t bound) {
    if (value == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    if (strlen(value) > bound) {
        return fail_bound(client, over_bound, bound, strlen(value));
    }
    if (strchr(value, '\n') != NULL) {
        return fail(client, VELTRANCORD_VALUE_HAS_LINE_FEED);
    }
    return VELTRANCORD_OK;
}

int32_t check_value(struct veltrancord_client* client, const struct veltrancord_setting* setting) {
    return check_text(
        client, setting->value, VELTRANCORD_VALUE_OVER_BOUND,
        is_secret(setting->path) ? VELTRANCORD_MAX_SECRET_VALUE : VELTRANCORD_MAX_VALUE);
}

int32_t check_attribute_value(struct veltrancord_client* client, const char* value) {
    return check_text(client, value, VELTRANCORD_ATTRIBUTE_OVER_BOUND,
                      VELTRANCORD_MAX_ATTRIBUTE_VALUE);
}

int32_t check_field(struct veltrancord_client* client, const char* field, char separator) {
    if (field == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    if (separator != '\0' && strchr(field, separator) != NULL) {
        return fail(client, VELTRANCORD_FIELD_HAS_SEPARATOR);
    }
    return VELTRANCORD_OK;
}

int32_t check_full_field(struct veltrancord_client* client, const char* field, char separator) {
    const int32_t result = check_field(client, field, separator);
    if (result == VELTRANCORD_OK && field[0] == '\0') {
        return fail(client, VELTRANCORD_FIELD_EMPTY);
    }
    return result;
}

int32_t check_file_name(struct veltrancord_client* client, const char* file, size_t bound) {
    const int32_t result = check_full_field(client, file, '\0');
    if (result == VELTRANCORD_OK && strlen(file) > bound) {
        return fail_bound(client, VELTRANCORD_FILE_NAME_OVER_BOUND, bound, strlen(file));
    }
    return result;
}
