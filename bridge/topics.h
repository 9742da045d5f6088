// The topics of a device.
#pragma once

#include <string>
#include <string_view>

namespace veltrancord::bridge {

inline constexpr std::size_t max_device_name = 64;

// Whether the name can be a level of a topic: letters, digits, ".", "_" and "-", at most
// max_device_name of them, a letter or digit first.
[[nodiscard]] bool is_device_name(std::string_view name);

// "veltrancord/1/<device>/<rest>".
[[nodiscard]] std::string topic_of(std::string_view device, std::string_view rest);

// The topics below the device's, as `rest`.
inline constexpr std::string_view status_topic = "status";
inline constexpr std::string_view event_topic = "event";
inline constexpr std::string_view reported_topic = "config/reported/";  // the document follows
inline constexpr std::string_view desired_topic = "config/desired";
inline constexpr std::string_view preview_topic = "config/preview";
inline constexpr std::string_view confirm_topic = "config/confirm";
inline constexpr std::string_view result_topic = "config/result";

}  // namespace veltrancord::bridge
