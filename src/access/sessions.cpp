#include "access/sessions.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "leaf/result.h"

namespace veltrancord {

namespace {

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
}

bool add_session(session_lists& lists, std::string_view session, int64_t now) {
    std::unique_ptr<SessionItem> item(new (std::nothrow) SessionItem);
    if (!item || !item->session.assign(session)) {
        return false;
    }
    item->created = now;
    lists.session_list.append(std::move(item));
    ++lists.session_count;
    if (lists.session_count > max_sessions) {
        lists.session_list.remove_first();
        --lists.session_count;
    }
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
    if (!item->captcha.assign(captcha)) {
        return captcha_addition::no_captcha;
    }
    if (!item->verify_code.assign(verify_code)) {
        return captcha_addition::no_verify_code;
    }
    item->time = now;
    lists.captcha_list.append(std::move(item));
    ++lists.captcha_count;
    if (lists.captcha_count > max_captchas) {
        lists.captcha_list.remove_first();
        --lists.captcha_count;
    }
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
                lists.captcha_list.remove(item);
                --lists.captcha_count;
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
            lists.captcha_list.remove(item);
            --lists.captcha_count;
        }
    }
}

}  // namespace veltrancord
