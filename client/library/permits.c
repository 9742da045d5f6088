/* Permits, groups and the filter of CGI commands. */
#include "bounds.h"
#include "failure.h"
#include "request.h"

/* Composes "first&second" or "first&second&third"; only the last field may hold a '&', and only
 * when it is a third one. */
static int32_t compose(struct veltrancord_client* client, struct request* request,
                       const char* first, const char* second, const char* third) {
    int32_t result = 0;
    clear_failure(client);
    result = check_field(client, first, '&');
    if (result == VELTRANCORD_OK) {
        result = check_field(client, second, '&');
    }
    if (result != VELTRANCORD_OK) {
        return result;
    }
    request_init(request);
    request_append_text(request, first);
    request_append(request, "&", 1);
    request_append_text(request, second);
    if (third != NULL) {
        request_append(request, "&", 1);
        request_append_text(request, third);
    }
    return VELTRANCORD_OK;
}

static int32_t ask(struct veltrancord_client* client, const char* command, const char* first,
                   const char* second, const char* third) {
    struct request request;
    const int32_t result = compose(client, &request, first, second, third);
    return about(client, second,
                 result == VELTRANCORD_OK ? request_code(client, command, &request) : result);
}

int32_t veltrancord_group_may(struct veltrancord_client* client, const char* group,
                              const char* permit, const char* argument) {
    return ask(client, "isPermitAllow", group, permit, argument);
}

int32_t veltrancord_user_may(struct veltrancord_client* client, const char* user,
                             const char* permit, const char* argument) {
    return ask(client, "isPermitAllowByUser", user, permit, argument);
}

int32_t veltrancord_user_may_cgi(struct veltrancord_client* client, const char* user,
                                 const char* command, const char* parameters) {
    return ask(client, "GetCGIPermitFilter", user, command, parameters);
}

int32_t veltrancord_permit_value(struct veltrancord_client* client, const char* group,
                                 const char* permit, char* value, size_t size) {
    struct request request;
    const int32_t result = compose(client, &request, group, permit, NULL);
    if (result != VELTRANCORD_OK) {
        return about(client, permit, result);
    }
    if (value == NULL || size == 0) {
        return about(client, permit, fail(client, VELTRANCORD_INVALID_USE));
    }
    return about(client, permit, request_text(client, "getPermitValue", &request, value, size));
}

int32_t veltrancord_user_group(struct veltrancord_client* client, const char* user, char* group,
                               size_t size) {
    struct request request;
    int32_t result = 0;
    clear_failure(client);
    result = check_field(client, user, '\0');
    if (result != VELTRANCORD_OK) {
        return about(client, user, result);
    }
    if (group == NULL || size == 0) {
        return about(client, user, fail(client, VELTRANCORD_INVALID_USE));
    }
    request_init(&request);
    request_append_text(&request, user);
    return about(client, user, request_text(client, "getGroupName", &request, group, size));
}

int32_t veltrancord_list_permits(struct veltrancord_client* client,
                                 struct veltrancord_reply* reply) {
    struct request request;
    clear_failure(client);
    if (reply == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    request_init(&request);
    return request_reply(client, "listPermits", &request, reply);
}

int32_t veltrancord_sync_permits(struct veltrancord_client* client) {
    struct request request;
    clear_failure(client);
    request_init(&request);
    return request_code(client, "SyncPermit", &request);
}
