#include "update/handlers.h"

#include "leaf/result.h"
#include "update/backup.h"
#include "update/documents.h"
#include "update/exchange_file.h"
#include "update/saving.h"
#include "update/write_lines.h"

namespace veltrancord {

namespace {

// A backup is due after any attempt to change something: what part of the lines was applied before
// a failure, and whether there was anything to save, is not worth telling apart.
void count_change(const connection_record& connection) {
    connection.listener->change_counter->fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

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

int32_t upload_handle(connection_record& /*connection*/, command_argument argument,
                      int32_t /*row*/) {
    return upload_documents(argument.text());
}

int32_t download_handle(connection_record& /*connection*/, command_argument argument,
                        int32_t /*row*/) {
    return download_documents(argument.text());
}

int32_t restore_handle(connection_record& /*connection*/, command_argument argument,
                       int32_t /*row*/) {
    return restore_documents(argument.text());
}

int32_t syncxml_handle(connection_record& /*connection*/, command_argument argument,
                       int32_t /*row*/) {
    return sync_documents(argument.text());
}

int32_t remove_handle(connection_record& /*connection*/, command_argument argument,
                      int32_t /*row*/) {
    return remove_setting(argument.text());
}

int32_t syncmemtoflash_handle(connection_record& connection, command_argument /*argument*/,
                              int32_t /*row*/) {
    count_change(connection);
    return save_memory_changes();
}

int32_t xmldb_callback_handle(connection_record& /*connection*/, command_argument argument,
                              int32_t /*row*/) {
    return XMLDBCallBack(argument.text());
}

}  // namespace veltrancord
