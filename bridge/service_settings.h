// Settings as the service holds them, for what the bridge tells and compares.
//
// Each call is one or more exchanges with the borrowed client, whose error tells more after a
// failure. Any thread that has a client of its own.
#pragma once

#include <veltrancord/client.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "configuration.h"

namespace veltrancord::bridge {

// The document's settings that may be told, "path=value" lines in the service's order. Left out are
// those with "AllowToShow" other than "YES", barred ones, and values with line feeds.
//
// Return: VELTRANCORD_OK, also for a document that there is not, whose report is empty; or what the
// exchange gave.
[[nodiscard]] int32_t read_report(veltrancord_client& client, const configuration& settings,
                                  const std::string& document, std::string& report);

// Return: VELTRANCORD_OK with the value, none where there is no text; or what the exchange gave.
[[nodiscard]] int32_t read_value(veltrancord_client& client, const std::string& path,
                                 std::optional<std::string>& value);

// Whether writing it starts a program. Return: VELTRANCORD_OK, or what the exchange gave.
[[nodiscard]] int32_t look_for_program(veltrancord_client& client, const std::string& path,
                                       bool& starts_one);

// Whether there are settings below it. Return: VELTRANCORD_OK, or what the exchange gave.
[[nodiscard]] int32_t look_below(veltrancord_client& client, const std::string& path, bool& some);

// Whether the service holds all of these settings, and none of those in `absent` has a text.
// Return: VELTRANCORD_OK, or what the exchange gave.
[[nodiscard]] int32_t compare_settings(
    veltrancord_client& client, const std::vector<std::pair<std::string, std::string>>& settings,
    const std::vector<std::string>& absent, bool& hold);

}  // namespace veltrancord::bridge
