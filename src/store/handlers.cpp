#include "store/handlers.h"

#include <string_view>

#include "leaf/decimal_number.h"
#include "leaf/result.h"
#include "store/attribute_query.h"
#include "store/read_query.h"
#include "store/value.h"

namespace veltrancord {

int32_t read_handle(connection_record& connection, command_argument argument, int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "read_handle")) {
        return result_ok;
    }
    return ReadXmlTree(argument.text(), connection.reply, 0, {});
}

int32_t readwithlevel_handle(connection_record& connection, command_argument argument,
                             int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "readwithlevel_handle")) {
        return result_ok;
    }
    // The last "&", since a path may hold one itself.
    const std::string_view text = argument.text();
    const std::size_t separator = text.rfind('&');
    if (separator == std::string_view::npos) {
        return result_not_found;
    }
    const int32_t level = decimal_number(text.substr(separator + 1));
    return ReadXmlTree(text.substr(0, separator), connection.reply, level, {});
}

int32_t read_filter_handle(connection_record& connection, command_argument argument,
                           int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "read_filter_handle")) {
        return result_ok;
    }
    return ReadXmlTree(argument.text(), connection.reply, 0, readFilterList);
}

// The result is the length of the stored text, so the plain text of a secret is followed by zero
// bytes up to that length: clients take the text up to the first of them.
int32_t readvalue_handle(connection_record& connection, command_argument argument,
                         int32_t /*row*/) {
    if (!OpenReadReply(connection.reply, "readvalue_handle")) {
        return result_ok;
    }
    XmlValue value;
    const int32_t result = ReadXmlValue(argument.text(), value);
    if (result < 0) {
        return result;
    }
    const bool fits = static_cast<uint32_t>(result) <= ReadReplyCapacity(connection.reply);
    return fits && connection.reply.append(value.text) ? result : result_too_large;
}

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
