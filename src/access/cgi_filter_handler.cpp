#include "access/cgi_filter_handler.h"

#include <string_view>

#include "access/cgi_filter.h"
#include "access/filter.h"
#include "access/groups.h"
#include "access/users.h"
#include "handler/argument_fields.h"
#include "leaf/result.h"

namespace veltrancord {

int32_t GetCGIPermitFilter_handle(connection_record&, command_argument argument, int32_t) {
    const argument_fields fields = cut_at_ampersand(argument.text());
    if (!fields.rest) {
        return result_not_found;
    }
    // The user comes first: somebody unknown may issue nothing, not even what no rule stops.
    const std::string_view group = resolve_user_group(fields.first, g_group_list);
    if (group.empty()) {
        return result_denied;
    }
    const argument_fields request = cut_at_ampersand(*fields.rest);
    return decide_cgi_command(g_filter_list, g_group_list, group, request.first, request.rest);
}

}  // namespace veltrancord
