#include "store/setting.h"

#include <algorithm>

#include "leaf/decimal_number.h"
#include "store/attribute_query.h"
#include "store/value.h"

namespace veltrancord {

std::string_view SettingText(std::string_view text) {
    return text.substr(0, std::min(text.find('\0'), max_setting_text));
}

std::string_view ReadSetting(const SettingPath& path) {
    XmlValue value;
    return ReadXmlValue(path.View(), value) > 0 ? SettingText(value.text) : std::string_view();
}

std::string_view ReadAttributeSetting(const SettingPath& path) {
    std::string_view value;
    return ReadSingleAttr(path.View(), value) > 0 ? SettingText(value) : std::string_view();
}

int32_t ReadNumberSetting(std::string_view path, int32_t missing) {
    const std::string_view text = ReadSetting(SettingPath(path));
    return text.empty() ? missing : decimal_number(text);
}

}  // namespace veltrancord
