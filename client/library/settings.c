/* Values of settings, and attributes: read and written. */
#include <stdio.h>
#include <string.h>

#include "bounds.h"
#include "failure.h"
#include "request.h"

typedef int32_t path_check(struct veltrancord_client* client, const char* path, size_t bound);

static int32_t start_path_request(struct veltrancord_client* client, struct request* request,
                                  const char* path, path_check* check) {
    int32_t result = 0;
    clear_failure(client);
    request_init(request);
    result = check(client, path, VELTRANCORD_MAX_READ_PATH);
    if (result == VELTRANCORD_OK) {
        request_append_text(request, path);
    }
    return about(client, path, result);
}

static int32_t get_text(struct veltrancord_client* client, const char* command, const char* path,
                        path_check* check, char* value, size_t size) {
    struct request request;
    const int32_t result = start_path_request(client, &request, path, check);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    if (value == NULL || size == 0) {
        return about(client, path, fail(client, VELTRANCORD_INVALID_USE));
    }
    return about(client, path, request_text(client, command, &request, value, size));
}

static int32_t read_lines(struct veltrancord_client* client, const char* command, const char* path,
                          path_check* check, struct veltrancord_reply* reply) {
    struct request request;
    const int32_t result = start_path_request(client, &request, path, check);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    if (reply == NULL) {
        return about(client, path, fail(client, VELTRANCORD_INVALID_USE));
    }
    return about(client, path, request_reply(client, command, &request, reply));
}

int32_t veltrancord_get(struct veltrancord_client* client, const char* path, char* value,
                        size_t size) {
    return get_text(client, "readvalue", path, check_path, value, size);
}

int32_t veltrancord_read(struct veltrancord_client* client, const char* path,
                         struct veltrancord_reply* reply) {
    return read_lines(client, "read", path, check_path, reply);
}

int32_t veltrancord_read_visible(struct veltrancord_client* client, const char* path,
                                 struct veltrancord_reply* reply) {
    return read_lines(client, "readAndFilter", path, check_path, reply);
}

int32_t veltrancord_read_with_level(struct veltrancord_client* client, const char* path,
                                    int32_t level, struct veltrancord_reply* reply) {
    struct request request;
    char field[16];
    const int32_t result = start_path_request(client, &request, path, check_path);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    if (reply == NULL) {
        return about(client, path, fail(client, VELTRANCORD_INVALID_USE));
    }
    (void)snprintf(field, sizeof field, "&%ld", (long)level);
    request_append_text(&request, field);
    return about(client, path, request_reply(client, "readwithlevel", &request, reply));
}

int32_t veltrancord_get_attribute(struct veltrancord_client* client, const char* path, char* value,
                                  size_t size) {
    return get_text(client, "readsingleattr", path, check_attribute_path, value, size);
}

int32_t veltrancord_read_attributes(struct veltrancord_client* client, const char* path,
                                    struct veltrancord_reply* reply) {
    return read_lines(client, "readattr", path, check_attribute_path, reply);
}

int veltrancord_next_line(const char** cursor, struct veltrancord_line* line) {
    const char* start = *cursor;
    const char* end = NULL;
    const char* equals = NULL;
    if (*start == '\0') {
        return 0;
    }
    end = start + strcspn(start, "\n");
    equals = memchr(start, '=', (size_t)(end - start));
    line->key = start;
    line->key_length = equals != NULL ? (size_t)(equals - start) : 0;
    line->value = equals != NULL ? equals + 1 : start;
    line->value_length = (size_t)(end - line->value);
    *cursor = *end == '\n' ? end + 1 : end;
    return 1;
}

static int32_t check_setting(struct veltrancord_client* client,
                             const struct veltrancord_setting* setting) {
    const int32_t result = check_path(client, setting->path, VELTRANCORD_MAX_WRITE_PATH);
    return result == VELTRANCORD_OK ? check_value(client, setting) : result;
}

static int32_t check_attribute_setting(struct veltrancord_client* client,
                                       const struct veltrancord_setting* setting) {
    const int32_t result = check_attribute_path(client, setting->path, VELTRANCORD_MAX_WRITE_PATH);
    return result == VELTRANCORD_OK ? check_attribute_value(client, setting->value) : result;
}

typedef int32_t setting_check(struct veltrancord_client* client,
                              const struct veltrancord_setting* setting);

/* The service does not tell which of several it stopped at. */
static int32_t about_all(struct veltrancord_client* client,
                         const struct veltrancord_setting* settings, size_t count, int32_t result) {
    char subject[VELTRANCORD_MAX_WRITE_PATH + 32];
    if (count == 1) {
        return about(client, settings[0].path, result);
    }
    (void)snprintf(subject, sizeof subject, "one of %zu settings from %s on", count,
                   settings[0].path);
    return about(client, subject, result);
}

static int32_t write_lines(struct veltrancord_client* client, const char* command,
                           const struct veltrancord_setting* settings, size_t count,
                           setting_check* check) {
    struct request request;
    size_t index = 0;
    clear_failure(client);
    if (settings == NULL || count == 0) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    for (index = 0; index < count; ++index) {
        const int32_t result = check(client, &settings[index]);
        if (result != VELTRANCORD_OK) {
            client->error.index = index;
            return about(client, settings[index].path, result);
        }
    }
    request_init(&request);
    for (index = 0; index < count; ++index) {
        request_append_text(&request, settings[index].path);
        request_append(&request, "=", 1);
        request_append_text(&request, settings[index].value);
        request_append(&request, "\n", 1);
    }
    return about_all(client, settings, count, request_code(client, command, &request));
}

int32_t veltrancord_write(struct veltrancord_client* client,
                          const struct veltrancord_setting* settings, size_t count) {
    return write_lines(client, "write", settings, count, check_setting);
}

int32_t veltrancord_write_memory(struct veltrancord_client* client,
                                 const struct veltrancord_setting* settings, size_t count) {
    return write_lines(client, "writedbmem", settings, count, check_setting);
}

int32_t veltrancord_write_attributes(struct veltrancord_client* client,
                                     const struct veltrancord_setting* settings, size_t count) {
    return write_lines(client, "writeattr", settings, count, check_attribute_setting);
}

int32_t veltrancord_set(struct veltrancord_client* client, const char* path, const char* value) {
    struct veltrancord_setting setting;
    setting.path = path;
    setting.value = value;
    return veltrancord_write(client, &setting, 1);
}
