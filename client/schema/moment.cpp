#include "schema/moment.h"

#include <algorithm>
#include <array>

namespace veltrancord::schema {
namespace {

constexpr int64_t seconds_of_day = 86400;
constexpr int64_t widest_zone = int64_t{14} * 3600;

// Takes exactly `count` digits. Return: -1 when they are not there.
int take_number(std::string_view& rest, std::size_t count) {
    if (rest.size() < count) {
        return -1;
    }
    int number = 0;
    for (const char digit : rest.substr(0, count)) {
        if (digit < '0' || digit > '9') {
            return -1;
        }
        number = number * 10 + (digit - '0');
    }
    rest.remove_prefix(count);
    return number;
}

bool take(std::string_view& rest, char expected) {
    if (!rest.starts_with(expected)) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

// Takes "Z", "+hh:mm", "-hh:mm" or nothing, which has to be all that is left.
bool take_zone(std::string_view rest, moment& found) {
    if (rest.empty()) {
        return true;
    }
    found.zoned = true;
    if (rest == "Z") {
        return true;
    }
    const bool west = rest.front() == '-';
    if (!take(rest, '+') && !take(rest, '-')) {
        return false;
    }
    const int hours = take_number(rest, 2);
    const bool colon = take(rest, ':');
    const int minutes = take_number(rest, 2);
    const int64_t offset = hours * int64_t{3600} + minutes * int64_t{60};
    if (hours < 0 || !colon || minutes < 0 || minutes > 59 || offset > widest_zone ||
        !rest.empty()) {
        return false;
    }
    found.seconds += west ? offset : -offset;
    return true;
}

bool is_leap(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int days_in(int year, int month) {
    constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : days[static_cast<std::size_t>(month - 1)];
}

int64_t days_before(int year, int month, int day) {
    const int64_t past = year - 1;
    int64_t days = past * 365 + past / 4 - past / 100 + past / 400;
    for (int one = 1; one < month; ++one) {
        days += days_in(year, one);
    }
    return days + day - 1;
}

int order_of(const moment& left, const moment& right, int64_t shift) {
    const int64_t other = right.seconds + shift;
    if (left.seconds != other) {
        return left.seconds < other ? -1 : 1;
    }
    return left.fraction.compare(right.fraction);
}

}  // namespace

std::optional<moment> read_time(std::string_view text) {
    const int hours = take_number(text, 2);
    const bool first = take(text, ':');
    const int minutes = take_number(text, 2);
    const bool second = take(text, ':');
    const int seconds = take_number(text, 2);
    if (hours < 0 || !first || minutes < 0 || minutes > 59 || !second || seconds < 0 ||
        seconds > 59) {
        return std::nullopt;
    }
    moment found;
    if (take(text, '.')) {
        const std::string_view fraction = text.substr(0, text.find_first_not_of("0123456789"));
        if (fraction.empty()) {
            return std::nullopt;
        }
        text.remove_prefix(fraction.size());
        found.fraction = fraction.substr(0, fraction.find_last_not_of('0') + 1);
    }
    const bool end_of_day = hours == 24 && minutes == 0 && seconds == 0 && found.fraction.empty();
    if (hours > 23 && !end_of_day) {
        return std::nullopt;
    }
    found.seconds = hours * int64_t{3600} + minutes * int64_t{60} + seconds;
    return take_zone(text, found) ? std::optional(found) : std::nullopt;
}

std::optional<moment> read_date(std::string_view text) {
    const int year = take_number(text, 4);
    const bool first = take(text, '-');
    const int month = take_number(text, 2);
    const bool second = take(text, '-');
    const int day = take_number(text, 2);
    if (year < 1 || !first || month < 1 || month > 12 || !second || day < 1 ||
        day > days_in(year, month)) {
        return std::nullopt;
    }
    moment found;
    found.seconds = days_before(year, month, day) * seconds_of_day;
    return take_zone(text, found) ? std::optional(found) : std::nullopt;
}

moment_order compare(const moment& left, const moment& right) {
    if (left.zoned == right.zoned) {
        const int order = order_of(left, right, 0);
        return order < 0    ? moment_order::before
               : order == 0 ? moment_order::same
                            : moment_order::after;
    }
    if (order_of(left, right, -widest_zone) < 0) {
        return moment_order::before;
    }
    return order_of(left, right, widest_zone) > 0 ? moment_order::after : moment_order::unknown;
}

}  // namespace veltrancord::schema
