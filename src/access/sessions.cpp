#include <memory>
#include <new>
#include <utility>

#include "access/session_lists.h"

namespace veltrancord {

void init_session_lists(session_lists& lists) {
    lists.captcha_list.clear();
    lists.session_list.clear();
    lists.captcha_count = 0;
    lists.session_count = 0;
    lists.marks.clear();
}

bool add_session(session_lists& lists, std::string_view session, int64_t now) {
    std::unique_ptr<SessionItem> item(new (std::nothrow) SessionItem);
    if (!item || !item->session.assign(session)) {
        return false;
    }
    item->created = now;
    lists.marks.append(lists.session_list.append(std::move(item)), session);
    ++lists.session_count;
    if (lists.session_count > max_sessions) {
        lists.session_list.remove_first();
        lists.marks.remove_first();
        --lists.session_count;
    }
    return true;
}

bool is_session_valid(const session_lists& lists, std::string_view session, int32_t lifetime,
                      int64_t now) {
    // The same token may have been set again later, so an expired one does not end the search.
    return lists.marks.any(session, [&](const SessionItem& item) {
        return now < item.created + lifetime &&
               equals_in_constant_time(item.session.view(), session);
    });
}

}  // namespace veltrancord
