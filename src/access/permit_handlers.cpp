#include "access/permit_handlers.h"

#include <limits>
#include <string_view>

#include "access/groups.h"
#include "access/permit_query.h"
#include "access/permits.h"
#include "access/users.h"
#include "handler/argument_fields.h"
#include "leaf/message.h"
#include "leaf/result.h"

namespace veltrancord {

namespace {

constexpr auto max_reply = static_cast<std::size_t>(std::numeric_limits<int32_t>::max());

// The argument of a permit check behind the group or user: "permit[&argument]".
int32_t decide(std::string_view group, std::string_view question) {
    const argument_fields fields = cut_at_ampersand(question);
    return decide_permit(g_group_list, group, fields.first, fields.rest);
}

int32_t reply_with(connection_record& connection, std::string_view text) {
    if (!connection.reply.open(text.size()) || !connection.reply.append(text)) {
        connection.reply.close();
        return result_too_large;
    }
    return static_cast<int32_t>(text.size());
}

}  // namespace

// An argument without "&" is denied here, while the queries below do not find it. A page that asks
// by group shows a function unless it is denied, since "not found" also stands for permits that a
// device of this kind does not have: a mangled question must not show what nobody asked about.
int32_t isPermitAllow_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    return fields.rest ? decide(fields.first, *fields.rest) : result_denied;
}

int32_t isPermitAllowByUser_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    const std::string_view group = resolve_user_group(fields.first, g_group_list);
    return group.empty() ? result_denied : decide(group, *fields.rest);
}

int32_t getPermitValue_handle(connection_record& connection, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    const PermGroup* const group = find_group(g_group_list, fields.first);
    if (group == nullptr) {
        return result_denied;
    }
    // The whole rest is the permit's name, which may hold an "&" here and nowhere else.
    const PermProperty* const property = find_property(*group, *fields.rest);
    return property != nullptr ? reply_with(connection, property->value.view()) : result_not_found;
}

int32_t getGroupName_handle(connection_record& connection, command_argument argument, int32_t) {
    const std::string_view group = resolve_user_group(argument.text(), g_group_list);
    return group.empty() ? result_denied : reply_with(connection, group);
}

int32_t listPermits_handle(connection_record& connection, command_argument, int32_t) {
    if (!connection.reply.open(max_reply) || !list_permits(g_permit_list, connection.reply)) {
        print_error("%s allocate memory fail!!\n", "listPermits_handle");
        connection.reply.close();
        return result_ok;
    }
    return static_cast<int32_t>(connection.reply.size());
}

}  // namespace veltrancord
