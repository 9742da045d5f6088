// Documents outside the service, read by the service's own code, so that both always agree.
#pragma once

#include <string>

#include "setting.h"

namespace veltrancord::tool {

// The settings of an exchange file's documents, secrets in plain text. Return: false when the text
// does not parse.
bool parse_exchange_text(const std::string& text, setting_list& settings);

}  // namespace veltrancord::tool
