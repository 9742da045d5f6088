#include "event_names.h"

#include "encoding/escape.h"
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
    if (read_subtree(tool, branch, settings) >= 0) {
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

}  // namespace veltrancord::tool
