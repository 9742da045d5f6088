// The checks among settings that the service itself reads.
#include <optional>
#include <string>

#include "directory_check.h"
#include "event_names.h"
#include "leaf/decimal_number.h"
#include "store/document_set.h"
#include "store/value.h"

namespace veltrancord::tool {
namespace {

constexpr int most_definitions = 1000;

std::optional<std::string> value_of(const std::string& path) {
    XmlValue value;
    if (ReadXmlValue(path, value) <= 0) {
        return std::nullopt;
    }
    return std::string(value.text);
}

// A count as the service reads it: the text as atoi() would, or what it takes when there is none.
int count_of(const std::string& path, int otherwise) {
    const auto text = value_of(path);
    return text ? decimal_number(*text) : otherwise;
}

std::string numbered(const std::string& prefix, int number, const std::string& suffix = "") {
    return prefix + std::to_string(number) + suffix;
}

void check_event_bits(std::vector<finding>& findings) {
    const int count = count_of("Notification.Log.BitDefine.Num", 0);
    for (int number = 1; number <= count && number <= most_definitions; ++number) {
        const std::string path = numbered("Notification.Log.BitDefine.Def", number, ".Bit");
        const auto text = value_of(path);
        uint32_t bits = 0;
        if (!text) {
            findings.push_back(
                {"Notification", path, "event-bits", "is missing though \"Num\" counts it"});
        } else if (text->find('x') == std::string::npos) {
            findings.push_back({"Notification", path, "event-bits",
                                "has no 'x', so that the definition counts for nothing"});
        } else if (!parse_event_bits_text(*text, bits)) {
            findings.push_back(
                {"Notification", path, "event-bits", "has not 1 to 8 digits behind its 'x'"});
        }
    }
}

}  // namespace

void check_settings(std::vector<finding>& findings) {
    check_event_bits(findings);
}

}  // namespace veltrancord::tool
