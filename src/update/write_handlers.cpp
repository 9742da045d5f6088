#include "update/write_handlers.h"

#include "leaf/result.h"
#include "update/lines.h"
#include "update/program_queue.h"
#include "update/value_setting.h"

namespace veltrancord {

namespace {

// A backup is due after any attempt to change something: what part of the lines was applied before
// a failure is not worth telling apart.
void count_change(const connection_record& connection) {
    connection.listener->change_counter->fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

int32_t write_lines(std::string_view text, bool to_flash) {
    if (text.empty()) {
        return result_bad_argument;
    }
    update_lines lines(text);
    update_line line;
    int32_t applied = 0;
    while (lines.next(line)) {
        const int32_t result = set_element_value(line.path, line.value, to_flash);
        if (result < 0) {
            return result;
        }
        queue_dispatch(line.path, text);
        ++applied;
    }
    return applied;
}

int32_t writeattr_lines(std::string_view text) {
    if (text.empty()) {
        return result_bad_argument;
    }
    update_lines lines(text);
    update_line line;
    int32_t applied = 0;
    while (lines.next(line)) {
        const int32_t result = set_attribute_value(line.path, line.value);
        if (result < 0) {
            return result;
        }
        ++applied;
    }
    return applied;
}

int32_t write_handle(connection_record& connection, command_argument argument, int32_t /*row*/) {
    count_change(connection);
    return write_lines(argument.text(), true);
}

int32_t writedbmem_handle(connection_record& /*connection*/, command_argument argument,
                          int32_t /*row*/) {
    return write_lines(argument.text(), false);
}

int32_t writeattr_handle(connection_record& connection, command_argument argument,
                         int32_t /*row*/) {
    count_change(connection);
    return writeattr_lines(argument.text());
}

}  // namespace veltrancord
