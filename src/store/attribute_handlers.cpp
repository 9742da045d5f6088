#include "store/attribute_handlers.h"

#include <string_view>

#include "leaf/result.h"
#include "store/attribute_query.h"
#include "store/read_query.h"

namespace veltrancord {

int32_t readattr_handle(connection_record& connection, command_argument argument, int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "readattr_handle")) {
        return result_ok;
    }
    return ReadAttributeHandleFun(argument.text(), connection.reply);
}

int32_t readsingleattr_handle(connection_record& connection, command_argument argument,
                              int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "readsingleattr_handle")) {
        return result_ok;
    }
    std::string_view value;
    const int32_t result = ReadSingleAttr(argument.text(), value);
    if (result < 0) {
        return result;
    }
    const bool fits = value.size() <= ReadReplyCapacity(connection.reply);
    return fits && connection.reply.append(value) ? result : result_too_large;
}

}  // namespace veltrancord
