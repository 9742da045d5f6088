// Documents outside the service, read by the service's own code, so that both always agree.
#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "setting.h"

namespace veltrancord::tool {

// The settings of an exchange file's documents, secrets in plain text, and with `documents` the
// names of these. Return: false when the text does not parse.
bool parse_exchange_text(const std::string& text, setting_list& settings,
                         std::set<std::string>* documents = nullptr);

// The length in bytes of the longest secret that the text holds in stored form. 0: there is none,
// so nothing would be decoded.
std::size_t longest_stored_secret(const std::string& text);

}  // namespace veltrancord::tool
