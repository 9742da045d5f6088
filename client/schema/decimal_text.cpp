#include "schema/decimal_text.h"

#include <algorithm>

namespace veltrancord::schema {
namespace {

constexpr std::string_view digits = "0123456789";

std::string_view take_digits(std::string_view& rest) {
    const std::string_view taken = rest.substr(0, rest.find_first_not_of(digits));
    rest.remove_prefix(taken.size());
    return taken;
}

int compare_sizes(const decimal_text& left, const decimal_text& right) {
    if (left.whole.size() != right.whole.size()) {
        return left.whole.size() < right.whole.size() ? -1 : 1;
    }
    const int whole = left.whole.compare(right.whole);
    return whole != 0 ? whole : left.fraction.compare(right.fraction);
}

}  // namespace

std::string decimal_text::text() const {
    std::string out = negative ? "-" : "";
    out += whole.empty() ? "0" : whole;
    return fraction.empty() ? out : out + "." + fraction;
}

std::optional<decimal_text> read_decimal(std::string_view text) {
    decimal_text number;
    if (text.starts_with('+') || text.starts_with('-')) {
        number.negative = text.front() == '-';
        text.remove_prefix(1);
    }
    std::string_view whole = take_digits(text);
    const bool has_whole = !whole.empty();
    std::string_view fraction;
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        fraction = take_digits(text);
    }
    if (!text.empty() || (!has_whole && fraction.empty())) {
        return std::nullopt;
    }
    whole.remove_prefix(std::min(whole.find_first_not_of('0'), whole.size()));
    if (whole.size() + fraction.size() > max_digits) {
        return std::nullopt;
    }
    number.whole = whole;
    number.fraction = fraction.substr(0, fraction.find_last_not_of('0') + 1);
    number.negative = number.negative && !(number.whole.empty() && number.fraction.empty());
    return number;
}

int compare(const decimal_text& left, const decimal_text& right) {
    if (left.negative != right.negative) {
        return left.negative ? -1 : 1;
    }
    return left.negative ? compare_sizes(right, left) : compare_sizes(left, right);
}

}  // namespace veltrancord::schema
