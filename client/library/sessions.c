/* Login sessions and captchas. */
#include <stdio.h>

#include "bounds.h"
#include "failure.h"
#include "request.h"

static void append_number(struct request* request, int32_t number) {
    char field[16];
    (void)snprintf(field, sizeof field, "&%ld", (long)number);
    request_append_text(request, field);
}

static int32_t start_session(struct veltrancord_client* client, struct request* request,
                             const char* session) {
    int32_t result = 0;
    clear_failure(client);
    /* What holds a '&' could be set, but never be checked. */
    result = check_full_field(client, session, '&');
    if (result == VELTRANCORD_OK) {
        request_init(request);
        request_append_text(request, session);
    }
    return result;
}

int32_t veltrancord_set_session(struct veltrancord_client* client, const char* session) {
    struct request request;
    const int32_t result = start_session(client, &request, session);
    return result == VELTRANCORD_OK ? request_code(client, "SetSession", &request) : result;
}

int32_t veltrancord_check_session(struct veltrancord_client* client, const char* session,
                                  int32_t lifetime) {
    struct request request;
    const int32_t result = start_session(client, &request, session);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    if (lifetime != VELTRANCORD_DEFAULT_LIFETIME) {
        append_number(&request, lifetime);
    }
    return request_code(client, "CheckSession", &request);
}

static int32_t start_captcha(struct veltrancord_client* client, struct request* request,
                             const char* verify_code, const char* captcha) {
    int32_t result = 0;
    clear_failure(client);
    result = check_full_field(client, verify_code, '&');
    if (result == VELTRANCORD_OK) {
        result = check_full_field(client, captcha, '&');
    }
    if (result == VELTRANCORD_OK) {
        request_init(request);
        request_append_text(request, verify_code);
        request_append(request, "&", 1);
        request_append_text(request, captcha);
    }
    return result;
}

static int32_t send_captcha(struct veltrancord_client* client, const char* command,
                            const char* verify_code, const char* captcha) {
    struct request request;
    const int32_t result = start_captcha(client, &request, verify_code, captcha);
    return result == VELTRANCORD_OK ? request_code(client, command, &request) : result;
}

int32_t veltrancord_set_captcha(struct veltrancord_client* client, const char* verify_code,
                                const char* captcha) {
    return send_captcha(client, "SetCaptcha", verify_code, captcha);
}

int32_t veltrancord_refresh_captcha(struct veltrancord_client* client, const char* verify_code,
                                    const char* captcha) {
    return send_captcha(client, "UpdateCaptchaTime", verify_code, captcha);
}

/* The service's answers to a comparison: 0 is the only one that lets somebody in. */
static int32_t comparison_result(struct veltrancord_client* client, int32_t answer) {
    if (answer <= 0) {
        return answer;
    }
    if (answer == 1) {
        return fail(client, VELTRANCORD_CAPTCHA_EXPIRED);
    }
    return fail(client, answer == 2 ? VELTRANCORD_CAPTCHA_WRONG : VELTRANCORD_BROKEN_REPLY);
}

int32_t veltrancord_compare_captcha(struct veltrancord_client* client, const char* verify_code,
                                    const char* captcha, int remove, int32_t lifetime) {
    struct request request;
    const int32_t result = start_captcha(client, &request, verify_code, captcha);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    append_number(&request, remove != 0 ? 1 : 0);
    if (lifetime != VELTRANCORD_DEFAULT_LIFETIME) {
        append_number(&request, lifetime);
    }
    return comparison_result(client, request_code(client, "CompareCaptcha", &request));
}

int32_t veltrancord_delete_captcha(struct veltrancord_client* client, const char* verify_code,
                                   const char* captcha) {
    const int32_t result = send_captcha(client, "DelCaptchaItem", verify_code, captcha);
    if (result == VELTRANCORD_NOT_FOUND) {
        /* The service's only answer to a well-formed request, whether or not it deleted any. */
        clear_failure(client);
        return VELTRANCORD_OK;
    }
    return result;
}
