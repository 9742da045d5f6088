#include "access/sessions.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "leaf/result.h"

namespace veltrancord {

const std::size_t max_session_text = std::size_t{VELTRANCORD_SESSION_TEXT_MIB} * 1024 * 1024;

namespace {

std::size_t text_size(const SessionItem& item) {
    return item.session.view().size();
}

std::size_t text_size(const CaptchaItem& item) {
    return item.captcha.view().size() + item.verify_code.view().size();
}

// The bytes that texts of a new item may have: what is free, and what the oldest item of a full
// list gives back when it goes.
template <class Item>
std::size_t room_for_text(const session_lists& lists, const tail_queue<Item>& list, bool full) {
    const std::size_t given_back = full ? text_size(*list.begin()) : 0;
    return lists.max_text_size - (lists.text_size - given_back);
}

// Takes an item out and frees it.
template <class Item>
void drop(session_lists& lists, tail_queue<Item>& list, int32_t& count, Item& item) {
    lists.text_size -= text_size(item);
    list.remove(item);
    --count;
}

// Puts the new item at the end of its list; when that was full, the oldest goes.
template <class Item>
void keep(session_lists& lists, tail_queue<Item>& list, int32_t& count, int32_t max,
          std::unique_ptr<Item> item) {
    if (count == max) {
        drop(lists, list, count, *list.begin());
    }
    lists.text_size += text_size(*item);
    list.append(std::move(item));
    ++count;
}

bool has_texts(const CaptchaItem& item, std::string_view verify_code, std::string_view captcha) {
    return item.verify_code.equals(verify_code) &&
           equals_in_constant_time(item.captcha.view(), captcha);
}

}  // namespace

void init_session_lists(session_lists& lists) {
    lists.captcha_list.clear();
    lists.session_list.clear();
    lists.captcha_count = 0;
    lists.session_count = 0;
    lists.text_size = 0;
}

bool add_session(session_lists& lists, std::string_view session, int64_t now) {
    const bool full = lists.session_count == max_sessions;
    if (session.size() > room_for_text(lists, lists.session_list, full)) {
        return false;
    }
    std::unique_ptr<SessionItem> item(new (std::nothrow) SessionItem);
    if (!item || !item->session.assign(session)) {
        return false;
    }
    item->created = now;
    keep(lists, lists.session_list, lists.session_count, max_sessions, std::move(item));
    return true;
}

bool is_session_valid(const session_lists& lists, std::string_view session, int32_t lifetime,
                      int64_t now) {
    // The same token may have been set again later, so an expired one does not end the search.
    return std::any_of(lists.session_list.begin(), lists.session_list.end(),
                       [&](const SessionItem& item) {
                           return now < item.created + lifetime &&
                                  equals_in_constant_time(item.session.view(), session);
                       });
}

captcha_addition add_captcha(session_lists& lists, std::string_view verify_code,
                             std::string_view captcha, int64_t now) {
    std::unique_ptr<CaptchaItem> item(new (std::nothrow) CaptchaItem);
    if (!item) {
        return captcha_addition::no_item;
    }
    const bool full = lists.captcha_count == max_captchas;
    const std::size_t room = room_for_text(lists, lists.captcha_list, full);
    if (captcha.size() > room || !item->captcha.assign(captcha)) {
        return captcha_addition::no_captcha;
    }
    if (verify_code.size() > room - captcha.size() || !item->verify_code.assign(verify_code)) {
        return captcha_addition::no_verify_code;
    }
    item->time = now;
    keep(lists, lists.captcha_list, lists.captcha_count, max_captchas, std::move(item));
    return captcha_addition::added;
}

int32_t compare_captcha(session_lists& lists, const captcha_question& question, int64_t now) {
    int32_t result = result_not_found;
    for (CaptchaItem& item : lists.captcha_list) {
        if (!item.verify_code.equals(question.verify_code)) {
            continue;
        }
        // A code has one captcha at a time. A newer one under the same code does not count while an
        // older, other one is there: else a page that draws a new picture for an old form would
        // let both answers pass.
        if (!equals_in_constant_time(item.captcha.view(), question.captcha)) {
            return result_captcha_wrong;
        }
        if (now < item.time + question.lifetime) {
            item.time = now;
            if (question.remove) {
                drop(lists, lists.captcha_list, lists.captcha_count, item);
            }
            return result_ok;
        }
        result = result_captcha_expired;
    }
    return result;
}

bool refresh_captcha(session_lists& lists, std::string_view verify_code, std::string_view captcha,
                     int64_t now) {
    for (CaptchaItem& item : lists.captcha_list) {
        if (has_texts(item, verify_code, captcha)) {
            item.time = now;
            return true;
        }
    }
    return false;
}

void remove_captchas(session_lists& lists, std::string_view verify_code, std::string_view captcha) {
    for (auto at = lists.captcha_list.begin(); at != lists.captcha_list.end();) {
        CaptchaItem& item = *at++;
        if (has_texts(item, verify_code, captcha)) {
            drop(lists, lists.captcha_list, lists.captcha_count, item);
        }
    }
}

}  // namespace veltrancord
