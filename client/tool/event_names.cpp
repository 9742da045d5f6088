#include "event_names.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "encoding/escape.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {

bool parse_event_bits_text(const std::string& text, uint32_t& bits) {
    const std::size_t mark = text.find('x');
    const std::size_t digits = mark == std::string::npos ? 0 : text.size() - mark - 1;
    if (digits < 1 || digits > 8) {
        return false;
    }
    bits = 0;
    for (const char letter : text.substr(mark + 1)) {
        const int32_t value = hex_digit_value(letter);
        bits = bits << 4U | static_cast<uint32_t>(value > 0 ? value : 0);
    }
    return true;
}

event_names::event_names(context& tool) {
    const veltrancord_error error = tool.client().error;
    setting_list settings;
    const std::string branch = "Notification.Log.BitDefine";
    result_ = read_subtree(tool, branch, settings);
    if (result_ >= 0) {
        const auto values = by_path(settings);
        for (const auto& [path, text] : values) {
            const std::size_t end = path.rfind(".Bit");
            if (end == std::string::npos || end + 4 != path.size()) {
                continue;
            }
            const auto name = values.find(path.substr(0, end) + ".Name");
            uint32_t bits = 0;
            if (name != values.end() && parse_event_bits_text(text, bits)) {
                definitions_.push_back({bits, name->second});
            }
        }
    }
    tool.client().error = error;
}

std::vector<std::string> event_names::of(int32_t type) const {
    std::vector<std::string> names;
    for (const definition& one : definitions_) {
        if ((static_cast<uint32_t>(type) & one.bits) != 0) {
            names.push_back(one.name);
        }
    }
    return names;
}

std::string event_names::all() const {
    std::string list;
    for (const definition& one : definitions_) {
        list.append(list.empty() ? "" : ", ").append(one.name);
    }
    return list;
}

uint32_t event_names::bits_of_name(std::string_view name) const {
    uint32_t bits = 0;
    for (const definition& one : definitions_) {
        bits |= one.name == name ? one.bits : 0;
    }
    return bits;
}

// A name may hold commas itself, so the longest that there is counts.
std::string_view event_names::first_name(std::string_view text) const {
    std::size_t end = text.size();
    while (bits_of_name(text.substr(0, end)) == 0) {
        const std::size_t comma = end > 0 ? text.rfind(',', end - 1) : std::string_view::npos;
        if (comma == std::string_view::npos) {
            return text.substr(0, text.find(','));
        }
        end = comma;
    }
    return text.substr(0, end);
}

bool event_names::bits_of(std::string_view text, int32_t& bits, std::string& unknown) const {
    uint32_t all = 0;
    while (all == 0 || !text.empty()) {
        const std::string_view name = first_name(text);
        const uint32_t more = bits_of_name(name);
        if (more == 0) {
            unknown = name;
            return false;
        }
        all |= more;
        text.remove_prefix(std::min(text.size(), name.size() + 1));
    }
    bits = static_cast<int32_t>(all);
    return true;
}

namespace {

enum class number_look { number, too_large, none };

// A number of 32 bits, with a sign or without: decimal, hexadecimal behind "0x" or octal behind
// "0".
number_look look_at_number(const std::string& text, int32_t& number) {
    try {
        std::size_t used = 0;
        const long long value = std::stoll(text, &used, 0);
        if (used != text.size()) {
            return number_look::none;
        }
        number = static_cast<int32_t>(static_cast<uint32_t>(value));
        return value < INT32_MIN || value > UINT32_MAX ? number_look::too_large
                                                       : number_look::number;
    } catch (const std::out_of_range&) {
        return number_look::too_large;
    } catch (const std::exception&) {
        return number_look::none;
    }
}

}  // namespace

int take_event_bits(context& tool, const std::string& text, int32_t& bits) {
    switch (look_at_number(text, bits)) {
        case number_look::number:
            return exit_done;
        case number_look::too_large:
            return tool.fail_with(exit_usage, text, "is no number of 32 bits");
        default:
            break;
    }
    const event_names names(tool);
    if (names.result() < 0 && names.result() != VELTRANCORD_NOT_FOUND) {
        return tool.fail("log", names.result());
    }
    std::string unknown;
    if (names.bits_of(text, bits, unknown)) {
        return exit_done;
    }
    const std::string known = names.all();
    return tool.fail_with(
        exit_not_found, unknown,
        "is neither a number, as in 16 or 0x10, nor the name of a type" +
            (known.empty() ? "; the notification settings name none" : "; there are: " + known));
}

}  // namespace veltrancord::tool
