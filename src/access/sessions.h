// Login sessions and captchas of the web interface.
//
// Its programs are started anew for each page and remember nothing; this is their memory. It is
// never written anywhere and ends with the worker. Tokens and captchas are secrets: no message
// holds one, what is freed is wiped, and comparing takes the same time wherever a guess goes wrong.
//
// Every rule takes the time as an argument, in seconds since the epoch. Server thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "access/owned_text.h"
#include "access/tail_queue.h"

namespace veltrancord {

inline constexpr int32_t max_sessions = 50;
inline constexpr int32_t max_captchas = 60;

inline constexpr int32_t default_session_lifetime = 60;  // seconds
inline constexpr int32_t default_captcha_lifetime = 30;  // seconds
inline constexpr int32_t min_captcha_lifetime = 5;       // seconds

// What both lists hold of texts together, in bytes: a build setting (VELTRANCORD_SESSION_TEXT_MIB,
// 32). The text that would exceed it is refused, as if memory for it could not be had.
extern const std::size_t max_session_text;

struct SessionItem {
    tail_queue_link<SessionItem> link;
    owned_text session;   // the token
    int64_t created = 0;  // when it was set
};

struct CaptchaItem {
    tail_queue_link<CaptchaItem> link;
    owned_text captcha;      // what the user must type
    owned_text verify_code;  // under which the page asked for it
    int64_t time = 0;        // when it was set or last refreshed
};

// The oldest entries come first in both lists.
struct session_lists {
    tail_queue<CaptchaItem> captcha_list;
    tail_queue<SessionItem> session_list;
    int32_t captcha_count = 0;
    int32_t session_count = 0;
    std::size_t text_size = 0;  // bytes of all their texts
    std::size_t max_text_size = max_session_text;
};

// Empties both lists; called once by the worker, after the permission lists are built.
void init_session_lists(session_lists& lists);

// Keeps a token, also one that is kept already; the oldest goes when there are more than
// max_sessions.
//
// Return: false when memory could not be had, or the text is over the bound; the list is then as it
// was.
[[nodiscard]] bool add_session(session_lists& lists, std::string_view session, int64_t now);

// Return: whether the token was set less than `lifetime` seconds ago.
[[nodiscard]] bool is_session_valid(const session_lists& lists, std::string_view session,
                                    int32_t lifetime, int64_t now);

// How keeping a captcha ended: each missing piece of memory has its own message.
enum class captcha_addition : uint8_t { added, no_item, no_captcha, no_verify_code };

// Keeps a captcha; the oldest goes when there are more than max_captchas. The lists are as they
// were when memory could not be had, or where a text is over the bound.
[[nodiscard]] captcha_addition add_captcha(session_lists& lists, std::string_view verify_code,
                                           std::string_view captcha, int64_t now);

struct captcha_question {
    std::string_view verify_code;
    std::string_view captcha;
    bool remove = false;  // a captcha that matches is used up
    int32_t lifetime = default_captcha_lifetime;
};

// Compares with the captchas of the verify code, the oldest first. A match within its lifetime gets
// the time `now` or is removed.
//
// Return: result_ok, result_captcha_wrong at the first captcha of that code that differs,
// result_captcha_expired, or result_not_found.
[[nodiscard]] int32_t compare_captcha(session_lists& lists, const captcha_question& question,
                                      int64_t now);

// Gives the oldest captcha with both texts the time `now`.
//
// Return: whether there is one.
[[nodiscard]] bool refresh_captcha(session_lists& lists, std::string_view verify_code,
                                   std::string_view captcha, int64_t now);

// Removes every captcha with both texts.
void remove_captchas(session_lists& lists, std::string_view verify_code, std::string_view captcha);

}  // namespace veltrancord
