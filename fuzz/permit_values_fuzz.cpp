// What a group's value for a permit allows: against checks of the simplest kind.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <optional>
#include <string>

#include "access/checks.h"
#include "fuzz_target.h"
#include "leaf/decimal_number.h"
#include "leaf/result.h"

namespace veltrancord::fuzz {
namespace {

bool is_on(std::string value) {
    std::transform(value.begin(), value.end(), value.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return value == "YES" || value == "ON";
}

// As strtol, whose long holds more than the number's 32 bits.
int32_t simple_number(const std::string& text) {
    return static_cast<int32_t>(
        std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT32_MIN, INT32_MAX));
}

bool lists(std::string value, int32_t channel) {
    value += ',';
    std::string item;
    for (const char c : value) {
        if (c != ',') {
            item += c;
        } else if (simple_number(item) == channel) {
            return true;
        } else {
            item.clear();
        }
    }
    return false;
}

int32_t allowed(bool yes) {
    return yes ? result_ok : result_denied;
}

}  // namespace

void try_input(input_reader& input) {
    // None of these texts ever holds a NUL.
    const std::string type(up_to_nul(input.piece()));
    const std::string value(up_to_nul(input.piece()));
    std::optional<std::string> argument;
    if (!input.empty()) {
        argument = up_to_nul(input.piece());
    }
    require(decimal_number(value) == simple_number(value), "a decimal number");

    int32_t queried = result_not_found;
    int32_t filtered = result_not_found;
    if (type == "Switch") {
        queried = filtered = allowed(is_on(value));
    } else if (type == "Channel") {
        queried = allowed(argument && lists(value, simple_number(*argument)));
        filtered = allowed(value.find("-1") == std::string::npos);
    }
    require(check_queried_permit(type, value, argument) == queried, "a query");
    require(check_filter_permit(type, value) == filtered, "a filtered command");
}

}  // namespace veltrancord::fuzz
