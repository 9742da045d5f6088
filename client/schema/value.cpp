#include "schema/value.h"

#include <algorithm>

#include "schema/check.h"
#include "schema/decimal_text.h"
#include "schema/moment.h"
#include "schema/utf8.h"

namespace veltrancord::schema {
namespace {

constexpr std::string_view white_space = " \t\n\r";

bool is_number(value_kind kind) {
    return kind == value_kind::integer || kind == value_kind::decimal;
}

// Whether the text is one of the built-in type, facets aside.
bool is_of_built_in(const simple_type& type, const std::string& text) {
    switch (type.kind) {
        case value_kind::string:
            return true;
        case value_kind::boolean:
            return text == "true" || text == "false" || text == "1" || text == "0";
        case value_kind::integer: {
            const bool has_sign = text.starts_with('+') || text.starts_with('-');
            const bool plain = text.find('.') == std::string::npos &&
                               !(has_sign && type.base_name.starts_with("unsigned"));
            return plain && read_decimal(text).has_value();
        }
        case value_kind::decimal:
            return read_decimal(text).has_value();
        case value_kind::time:
            return read_time(text).has_value();
        case value_kind::date:
            return read_date(text).has_value();
    }
    return false;
}

std::optional<moment> read_moment(value_kind kind, const std::string& text) {
    return kind == value_kind::time ? read_time(text) : read_date(text);
}

bool is_within_range(const simple_type& type, const std::string& text, const char*& broken) {
    if (type.least && order_of(type.kind, text, *type.least).value_or(-1) < 0) {
        broken = rule::min_inclusive;
        return false;
    }
    if (type.most && order_of(type.kind, text, *type.most).value_or(1) > 0) {
        broken = rule::max_inclusive;
        return false;
    }
    return true;
}

bool has_allowed_length(const simple_type& type, const std::string& text, const char*& broken) {
    if (!type.min_length && !type.max_length) {
        return true;
    }
    const std::size_t length = character_count(text);
    if (type.min_length && length < *type.min_length) {
        broken = rule::min_length;
        return false;
    }
    if (type.max_length && length > *type.max_length) {
        broken = rule::max_length;
        return false;
    }
    return true;
}

bool is_in_enumeration(const simple_type& type, const std::string& text) {
    return type.values.empty() ||
           std::any_of(type.values.begin(), type.values.end(), [&](const allowed_value& one) {
               return same_value(type.kind, counted_text(type.kind, one.value), text);
           });
}

bool matches_patterns(const simple_type& type, const std::string& text) {
    return std::all_of(
        type.patterns.begin(), type.patterns.end(), [&](const std::vector<pattern>& step) {
            return std::any_of(step.begin(), step.end(),
                               [&](const pattern& one) { return one.matches(text); });
        });
}

// The rule that the text breaks, or null.
const char* broken_rule(const simple_type& type, const std::string& text) {
    const char* broken = nullptr;
    if (!is_of_built_in(type, text)) {
        return rule::type;
    }
    if (!is_within_range(type, text, broken) || !has_allowed_length(type, text, broken)) {
        return broken;
    }
    if (!is_in_enumeration(type, text)) {
        return rule::enumeration;
    }
    return matches_patterns(type, text) ? nullptr : rule::pattern;
}

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// What was meant by a number with letters that look like digits in it, without what is behind a
// point where whole numbers are wanted.
std::string as_number(value_kind kind, std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == 'o' || c == 'O'; }, '0');
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == 'l' || c == 'I'; }, '1');
    if (kind == value_kind::integer && text.find('.') != std::string::npos) {
        text.resize(text.find('.'));
    }
    return text;
}

std::string near_number(const simple_type& type, const std::string& text) {
    const std::string meant = as_number(type.kind, text);
    const auto number = read_decimal(meant);
    if (!number) {
        return text;
    }
    if (type.least && order_of(type.kind, meant, *type.least) < 0) {
        return *type.least;
    }
    return type.most && order_of(type.kind, meant, *type.most) > 0 ? *type.most : number->text();
}

std::string near_enumeration(const simple_type& type, const std::string& text) {
    const auto nearest =
        std::min_element(type.values.begin(), type.values.end(),
                         [&](const allowed_value& left, const allowed_value& right) {
                             return distance(left.value, text) < distance(right.value, text);
                         });
    return nearest->value;
}

std::string near_text(const simple_type& type, const std::string& text) {
    if (type.kind == value_kind::string) {
        return type.max_length ? first_characters(text, *type.max_length) : text;
    }
    if (type.kind == value_kind::time && !text.empty()) {
        const std::string hours = text.find(':') == 1 ? "0" + text : text;
        return hours.size() == 5 ? hours + ":00" : hours;
    }
    return text;
}

}  // namespace

std::string counted_text(value_kind kind, std::string_view text) {
    if (kind == value_kind::string) {
        return std::string(text);
    }
    std::string counted;
    while (!text.empty()) {
        const std::size_t begin = std::min(text.find_first_not_of(white_space), text.size());
        text.remove_prefix(begin);
        const std::size_t end = std::min(text.find_first_of(white_space), text.size());
        counted += counted.empty() || end == 0 ? "" : " ";
        counted += text.substr(0, end);
        text.remove_prefix(end);
    }
    return counted;
}

std::optional<int> order_of(value_kind kind, const std::string& left, const std::string& right) {
    if (is_number(kind)) {
        const auto one = read_decimal(left);
        const auto other = read_decimal(right);
        return one && other ? std::optional(compare(*one, *other)) : std::nullopt;
    }
    const auto one = read_moment(kind, left);
    const auto other = read_moment(kind, right);
    if (!one || !other) {
        return std::nullopt;
    }
    switch (compare(*one, *other)) {
        case moment_order::before:
            return -1;
        case moment_order::same:
            return 0;
        case moment_order::after:
            return 1;
        case moment_order::unknown:
            break;
    }
    return std::nullopt;
}

bool same_value(value_kind kind, const std::string& left, const std::string& right) {
    if (kind == value_kind::string || kind == value_kind::boolean) {
        return left == right;
    }
    return order_of(kind, left, right) == 0;
}

bool has_zone(value_kind kind, const std::string& value) {
    const bool may_have = kind == value_kind::time || kind == value_kind::date;
    const auto read = may_have ? read_moment(kind, counted_text(kind, value)) : std::nullopt;
    return read && read->zoned;
}

std::string shortest_form(value_kind kind, const std::string& value) {
    const std::string counted = counted_text(kind, value);
    const auto number = is_number(kind) ? read_decimal(counted) : std::nullopt;
    return number ? number->text() : counted;
}

std::optional<std::string> nearest_value(const simple_type& type, const std::string& value) {
    const std::string counted = counted_text(type.kind, value);
    const std::string candidate = !type.values.empty()   ? near_enumeration(type, counted)
                                  : is_number(type.kind) ? near_number(type, counted)
                                                         : near_text(type, counted);
    const bool will_do = candidate != value && broken_rule(type, candidate) == nullptr;
    return will_do ? std::optional(candidate) : std::nullopt;
}

unsigned distance(std::string_view left, std::string_view right) {
    constexpr std::size_t most_compared = 64;
    constexpr unsigned change = 4;
    constexpr unsigned change_of_case = 1;
    left = left.substr(0, most_compared);
    right = right.substr(0, most_compared);
    std::vector<unsigned> before;
    std::vector<unsigned> last(right.size() + 1);
    std::vector<unsigned> now(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column) {
        last[column] = static_cast<unsigned>(column) * change;
    }
    for (std::size_t row = 1; row <= left.size(); ++row) {
        now[0] = static_cast<unsigned>(row) * change;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const char one = left[row - 1];
            const char other = right[column - 1];
            const unsigned cost = one == other                 ? 0
                                  : lower(one) == lower(other) ? change_of_case
                                                               : change;
            now[column] = std::min(
                {last[column] + change, now[column - 1] + change, last[column - 1] + cost});
            const bool swapped =
                row > 1 && column > 1 && one == right[column - 2] && left[row - 2] == other;
            if (swapped) {
                now[column] = std::min(now[column], before[column - 2] + change);
            }
        }
        before = last;
        last.swap(now);
    }
    return last[right.size()];
}

std::optional<violation> check_text(const simple_type& type, const std::string& value) {
    const char* const broken = broken_rule(type, counted_text(type.kind, value));
    if (broken == nullptr) {
        return std::nullopt;
    }
    violation found;
    found.rule = broken;
    found.value = value;
    found.allowed = type_text(type);
    found.nearest = nearest_value(type, value);
    return found;
}

}  // namespace veltrancord::schema
