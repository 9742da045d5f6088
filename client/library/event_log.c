/* The event log: records to and from their bytes, and its commands. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "failure.h"
#include "request.h"

/* Offsets of a record's fields. */
enum {
    type_at = 0,
    year_at = 4,
    month_at = 5,
    day_at = 6,
    hour_at = 7,
    minute_at = 8,
    second_at = 9,
    detail1_at = 10,
    text_at = 11,
    detail2_at = 27,
    time_at = 28
};

enum { first_year = 2000, records_on_stack = 32 };

static void store_number(unsigned char* bytes, int32_t number) {
    uint32_t value = 0;
    int index = 0;
    memcpy(&value, &number, sizeof value);
    for (index = 0; index < 4; ++index) {
        bytes[index] = (unsigned char)(value >> (8 * index) & 0xFFU);
    }
}

static int32_t load_number(const unsigned char* bytes) {
    uint32_t value = 0;
    int32_t number = 0;
    int index = 0;
    for (index = 0; index < 4; ++index) {
        value |= (uint32_t)bytes[index] << (8 * index);
    }
    memcpy(&number, &value, sizeof number);
    return number;
}

static size_t text_length(const struct veltrancord_log_record* record) {
    const char* end = memchr(record->text, '\0', sizeof record->text);
    return end != NULL ? (size_t)(end - record->text) : sizeof record->text;
}

void veltrancord_log_pack(const struct veltrancord_log_record* record,
                          unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE]) {
    const size_t length = text_length(record);
    memset(bytes, 0, VELTRANCORD_LOG_RECORD_SIZE);
    store_number(bytes + type_at, record->type);
    /* The service counts months from 0. */
    bytes[year_at] = (unsigned char)((record->year - first_year) & 0xFF);
    bytes[month_at] = (unsigned char)((record->month - 1) & 0xFF);
    bytes[day_at] = record->day;
    bytes[hour_at] = record->hour;
    bytes[minute_at] = record->minute;
    bytes[second_at] = record->second;
    bytes[detail1_at] = record->detail1;
    memcpy(bytes + text_at, record->text,
           length < VELTRANCORD_MAX_LOG_TEXT ? length : VELTRANCORD_MAX_LOG_TEXT);
    bytes[detail2_at] = record->detail2;
    store_number(bytes + time_at, record->time);
}

void veltrancord_log_unpack(const unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE],
                            struct veltrancord_log_record* record) {
    memset(record, 0, sizeof *record);
    record->type = load_number(bytes + type_at);
    record->year = first_year + bytes[year_at];
    record->month = (uint8_t)((bytes[month_at] + 1) & 0xFF);
    record->day = bytes[day_at];
    record->hour = bytes[hour_at];
    record->minute = bytes[minute_at];
    record->second = bytes[second_at];
    record->detail1 = bytes[detail1_at];
    memcpy(record->text, bytes + text_at, VELTRANCORD_MAX_LOG_TEXT);
    record->detail2 = bytes[detail2_at];
    record->time = load_number(bytes + time_at);
}

static int32_t add(struct veltrancord_client* client, const char* command,
                   const struct veltrancord_log_record* record) {
    struct request request;
    unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE];
    size_t length = 0;
    clear_failure(client);
    if (record == NULL) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    length = text_length(record);
    if (length > VELTRANCORD_MAX_LOG_TEXT) {
        return fail_bound(client, VELTRANCORD_FIELD_OVER_BOUND, VELTRANCORD_MAX_LOG_TEXT, length);
    }
    if (length == 0 || memchr(record->text, ':', length) != NULL) {
        return fail(client, VELTRANCORD_LOG_TEXT_UNREADABLE);
    }
    veltrancord_log_pack(record, bytes);
    request_init(&request);
    memcpy(request.text, bytes, sizeof bytes);
    request.length = sizeof bytes;
    return request_code(client, command, &request);
}

int32_t veltrancord_log_add(struct veltrancord_client* client,
                            const struct veltrancord_log_record* record) {
    return add(client, "writelog", record);
}

int32_t veltrancord_log_add_with_time(struct veltrancord_client* client,
                                      const struct veltrancord_log_record* record) {
    return add(client, "writelogwithtime", record);
}

static int32_t append_number(struct veltrancord_client* client, struct request* request,
                             long number) {
    char digits[24];
    const int length = snprintf(digits, sizeof digits, "%ld", number);
    if (length > VELTRANCORD_MAX_LOG_FIELD) {
        return fail_bound(client, VELTRANCORD_FIELD_OVER_BOUND, VELTRANCORD_MAX_LOG_FIELD,
                          (size_t)length);
    }
    request_append_text(request, digits);
    return VELTRANCORD_OK;
}

static int32_t compose_query(struct veltrancord_client* client, struct request* request,
                             enum veltrancord_log_mode mode, int32_t mask, size_t count) {
    static const size_t most_records = 9999999;
    const long limit = (long)(count < most_records ? count : most_records);
    int32_t result = append_number(client, request, (long)mode);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    request_append(request, "&", 1);
    result = append_number(client, request, mask);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    request_append(request, "&", 1);
    return append_number(client, request, limit);
}

int32_t veltrancord_log_read(struct veltrancord_client* client, enum veltrancord_log_mode mode,
                             int32_t mask, struct veltrancord_log_record* records, size_t count) {
    struct request request;
    char bytes[records_on_stack * VELTRANCORD_LOG_RECORD_SIZE + 1];
    struct veltrancord_reply reply = VELTRANCORD_REPLY_INIT(bytes, sizeof bytes, 0);
    int32_t result = 0;
    size_t index = 0;
    clear_failure(client);
    if (records == NULL || count == 0 || count > (size_t)INT32_MAX / sizeof bytes) {
        return fail(client, VELTRANCORD_INVALID_USE);
    }
    request_init(&request);
    result = compose_query(client, &request, mode, mask, count);
    if (result != VELTRANCORD_OK) {
        return result;
    }
    reply.cap = count * VELTRANCORD_LOG_RECORD_SIZE;
    result = request_reply(client, "readlog", &request, &reply);
    if (result <= 0) {
        return result;
    }
    if (reply.length % VELTRANCORD_LOG_RECORD_SIZE != 0 ||
        reply.length / VELTRANCORD_LOG_RECORD_SIZE > count) {
        veltrancord_reply_release(&reply);
        return fail(client, VELTRANCORD_BROKEN_REPLY);
    }
    count = reply.length / VELTRANCORD_LOG_RECORD_SIZE;
    for (index = 0; index < count; ++index) {
        unsigned char record[VELTRANCORD_LOG_RECORD_SIZE];
        memcpy(record, reply.text + index * sizeof record, sizeof record);
        veltrancord_log_unpack(record, &records[index]);
    }
    veltrancord_reply_release(&reply);
    return (int32_t)count;
}

static int32_t send_plain(struct veltrancord_client* client, const char* command) {
    struct request request;
    clear_failure(client);
    request_init(&request);
    return request_code(client, command, &request);
}

int32_t veltrancord_log_count(struct veltrancord_client* client) {
    return send_plain(client, "geteventcount");
}

int32_t veltrancord_log_capacity(struct veltrancord_client* client) {
    return send_plain(client, "maxlogcount");
}

int32_t veltrancord_log_clear(struct veltrancord_client* client) {
    return send_plain(client, "cleanlog");
}
