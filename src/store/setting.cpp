#include "store/setting.h"

#include <algorithm>

#include "leaf/decimal_number.h"
#include "store/attribute_query.h"
#include "store/value.h"

namespace veltrancord {

std::string_view setting_text(std::string_view text) {
    return text.substr(0, std::min(text.find('\0'), max_setting_text));
}

std::string_view read_setting(const setting_path& path) {
    XmlValue value;
    return ReadXmlValue(path.view(), value) > 0 ? setting_text(value.text) : std::string_view();
}

std::string_view read_attribute_setting(const setting_path& path) {
    std::string_view value;
    return ReadSingleAttr(path.view(), value) > 0 ? setting_text(value) : std::string_view();
}

int32_t read_number_setting(std::string_view path, int32_t missing) {
    const std::string_view text = read_setting(setting_path(path));
    return text.empty() ? missing : decimal_number(text);
}

}  // namespace veltrancord
