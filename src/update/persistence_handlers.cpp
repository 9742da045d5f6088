#include "update/persistence_handlers.h"

#include "leaf/result.h"
#include "update/backup.h"
#include "update/document_removal.h"
#include "update/exchange_commands.h"
#include "update/saving.h"

namespace veltrancord {

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

// Counted even when there is nothing to save: a client that syncs has changed something.
int32_t syncmemtoflash_handle(connection_record& connection, command_argument /*argument*/,
                              int32_t /*row*/) {
    connection.listener->change_counter->fetch_add(1, std::memory_order_relaxed);
    return save_memory_changes();
}

int32_t xmldb_callback_handle(connection_record& /*connection*/, command_argument argument,
                              int32_t /*row*/) {
    return XMLDBCallBack(argument.text());
}

}  // namespace veltrancord
