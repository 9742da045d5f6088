#include "eventlog/handlers.h"

#include <cerrno>
#include <new>

#include "eventlog/event_log.h"
#include "eventlog/notification.h"
#include "leaf/clock.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/reply_capacity.h"

namespace veltrancord {

namespace {

int32_t store_event(const log_record& record, int64_t seconds) {
    const log_time_text time = local_log_time(seconds);
    const int32_t result = g_event_log.add(record, time);
    if (result < 0) {
        return result;
    }
    // The entry is stored, whatever becomes of telling somebody.
    try {
        trigger_event_callback(record.type, time.text, record.first_detail, record.detail_text,
                               record.second_detail);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        print_reason("fork");
    }
    return result_ok;
}

log_record requested_record(const command_argument& argument) {
    return unpack_log_record({argument.data, argument.size});
}

}  // namespace

int32_t writelog_handle(connection_record&, command_argument argument, int32_t) {
    return store_event(requested_record(argument), wall_clock_seconds());
}

int32_t writelogwithtime_handle(connection_record&, command_argument argument, int32_t) {
    const log_record record = requested_record(argument);
    return store_event(record, record.time);
}

int32_t readlog_handle(connection_record& connection, command_argument argument, int32_t) {
    log_request request;
    const bool opened = connection.reply.open(GetReadBufSize());
    if (opened && !parse_log_request(argument.text(), request)) {
        return result_bad_argument;
    }
    const int32_t result = opened ? g_event_log.read(request, connection.reply) : result_too_large;
    if (result == result_too_large) {
        // A client takes this for a page without entries.
        print_error("%s allocate memory fail!!\n", "readlog_handle");
        return 0;
    }
    return result;
}

int32_t cleanlog_handle(connection_record&, command_argument, int32_t) {
    return g_event_log.clean();
}

int32_t geteventcount_handle(connection_record&, command_argument, int32_t) {
    return g_event_log.count();
}

int32_t maxlogcount_handle(connection_record&, command_argument, int32_t) {
    return g_event_log.capacity();
}

}  // namespace veltrancord
