/* Commands on whole documents. */
#include <string.h>

#include "bounds.h"
#include "failure.h"
#include "request.h"

static int32_t send_text(struct veltrancord_client* client, const char* command, const char* text) {
    struct request request;
    request_init(&request);
    request_append_text(&request, text);
    return request_code(client, command, &request);
}

static int32_t send_file_name(struct veltrancord_client* client, const char* command,
                              const char* file, size_t bound) {
    int32_t result = 0;
    clear_failure(client);
    result = check_file_name(client, file, bound);
    if (result == VELTRANCORD_OK) {
        result = send_text(client, command, file);
    }
    return about(client, file, result);
}

int32_t veltrancord_upload(struct veltrancord_client* client, const char* file) {
    return send_file_name(client, "upload", file, VELTRANCORD_MAX_UPLOAD_FILE_NAME);
}

int32_t veltrancord_restore(struct veltrancord_client* client, const char* file) {
    return send_file_name(client, "restore", file, VELTRANCORD_MAX_RESTORE_FILE_NAME);
}

int32_t veltrancord_sync_file(struct veltrancord_client* client, const char* file) {
    return send_file_name(client, "syncxml", file, VELTRANCORD_MAX_SYNC_FILE_NAME);
}

int32_t veltrancord_download(struct veltrancord_client* client, const char* file) {
    return send_file_name(client, "download", file, VELTRANCORD_MAX_DOWNLOAD_FILE_NAME);
}

int32_t veltrancord_remove(struct veltrancord_client* client, const char* path) {
    int32_t result = 0;
    clear_failure(client);
    result = check_path(client, path, VELTRANCORD_MAX_READ_PATH);
    if (result == VELTRANCORD_OK) {
        result = send_text(client, "remove", path);
    }
    return about(client, path, result);
}

int32_t veltrancord_sync_memory(struct veltrancord_client* client) {
    clear_failure(client);
    return send_text(client, "syncmemtoflash", "");
}

int32_t veltrancord_backup(struct veltrancord_client* client, const char* text) {
    clear_failure(client);
    if (text != NULL && strlen(text) > VELTRANCORD_MAX_BACKUP_TEXT) {
        return fail_bound(client, VELTRANCORD_FIELD_OVER_BOUND, VELTRANCORD_MAX_BACKUP_TEXT,
                          strlen(text));
    }
    return send_text(client, "XMLDBCallBack", text != NULL ? text : "");
}
