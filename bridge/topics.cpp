#include "topics.h"

#include <algorithm>

namespace veltrancord::bridge {
namespace {

bool is_letter_or_digit(char one) {
    return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') || (one >= '0' && one <= '9');
}

}  // namespace

bool is_device_name(std::string_view name) {
    return !name.empty() && name.size() <= max_device_name && is_letter_or_digit(name.front()) &&
           std::all_of(name.begin(), name.end(), [](char one) {
               return is_letter_or_digit(one) || one == '.' || one == '_' || one == '-';
           });
}

std::string topic_of(std::string_view device, std::string_view rest) {
    return std::string("veltrancord/1/").append(device).append("/").append(rest);
}

}  // namespace veltrancord::bridge
