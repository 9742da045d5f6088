// The device's certificate: whose it is, and how long it is good.
#pragma once

#include <ctime>
#include <string>

namespace veltrancord::bridge {

// Return: why the file cannot be used; empty with its subject's common name in `name`.
[[nodiscard]] std::string read_common_name(const std::string& file, std::string& name);

// Return: why the file cannot be used; empty with the time until which it is good.
[[nodiscard]] std::string read_not_after(const std::string& file, std::time_t& not_after);

}  // namespace veltrancord::bridge
