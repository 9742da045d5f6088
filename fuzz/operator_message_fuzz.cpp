// Messages to the bridge: taken whole or refused, and within their bounds.
#include <veltrancord/client.h>

#include <algorithm>
#include <set>
#include <string>

#include "fuzz_target.h"
#include "operator_message.h"
#include "path_rules.h"
#include "plainest_form.h"
#include "topics.h"

namespace veltrancord::fuzz {
namespace {

using namespace veltrancord::bridge;

void check_bounds(const operator_message& message) {
    require(is_device_name(message.id) && is_device_name(message.device), "the names");
    require(message.sequence > 0 && message.not_after >= 0, "the numbers");
    require(message.set.size() + message.remove.size() <= max_settings, "how many settings");
    std::set<std::string> paths(message.remove.begin(), message.remove.end());
    for (const auto& [path, value] : message.set) {
        require(paths.insert(path).second, "a path that stands there twice");
        require(value.size() <= VELTRANCORD_MAX_VALUE && value.find('\n') == std::string::npos &&
                    value.find('\0') == std::string::npos,
                "a value that the service would not take");
    }
    require(paths.size() == message.set.size() + message.remove.size(), "a path removed twice");
    require(std::all_of(paths.begin(), paths.end(), is_plain_path), "a path that is not plain");
}

}  // namespace

void try_input(input_reader& input) {
    const auto kind = input.byte() % 2 == 0 ? message_kind::change : message_kind::answer;
    operator_message message;
    if (!parse_message(input.rest(), kind, message).empty()) {
        return;
    }
    check_bounds(message);
    const std::string plainest = plainest_form(message, kind);
    operator_message again;
    require(parse_message(plainest, kind, again).empty(), "the plainest form is taken");
    require(plainest_form(again, kind) == plainest, "and reads the same");
}

}  // namespace veltrancord::fuzz
