// The class of each command, and where its argument names documents.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "guard/policy.h"

namespace veltrancord {

// How a command's argument names what it reads or changes.
enum class argument_kind : uint8_t {
    none,              // no document
    tree,              // a path; "*": every document
    tree_with_level,   // the same, before the last "&"
    path,              // a path
    lines,             // lines "path=value"
    attribute_lines,   // the same, the last component of a path being an attribute
    removal,           // a path and perhaps a line feed; ".*": every document
    memory_changes,    // nothing; the documents that are changed in memory only
    file_to_read,      // an exchange file, whose elements are the documents
    file_to_read_cut,  // the same; what is beyond 127 characters of its name does not count
    file_to_write,     // an exchange file, into which every document goes
};

struct command_traits {
    std::string_view name;
    command_class which = command_class::admin;
    argument_kind argument = argument_kind::none;
    bool changes = false;  // belongs into the trail of changes
};

// Every command, in the order of the command table, which asserts that they agree.
inline constexpr std::array all_command_traits = std::to_array<command_traits>({
    {"read", command_class::read, argument_kind::tree},
    {"readAndFilter", command_class::read, argument_kind::tree},
    {"readwithlevel", command_class::read, argument_kind::tree_with_level},
    {"write", command_class::write, argument_kind::lines, true},
    {"upload", command_class::files, argument_kind::file_to_read, true},
    {"download", command_class::files, argument_kind::file_to_write, true},
    {"remove", command_class::remove, argument_kind::removal, true},
    {"readlog", command_class::log_read},
    {"writelog", command_class::log_write},
    {"readvalue", command_class::read, argument_kind::path},
    {"cleanlog", command_class::log_clear, argument_kind::none, true},
    {"geteventcount", command_class::log_read},
    {"maxlogcount", command_class::log_read},
    {"readattr", command_class::read, argument_kind::path},
    {"writeattr", command_class::write, argument_kind::attribute_lines, true},
    {"readsingleattr", command_class::read, argument_kind::path},
    {"syncxml", command_class::files, argument_kind::file_to_read_cut, true},
    {"writedbmem", command_class::memory, argument_kind::lines, true},
    {"syncmemtoflash", command_class::memory, argument_kind::memory_changes, true},
    {"restore", command_class::files, argument_kind::file_to_read_cut, true},
    {"writelogwithtime", command_class::log_write},
    {"XMLDBCallBack", command_class::admin, argument_kind::none, true},
    {"SyncPermit", command_class::admin, argument_kind::none, true},
    {"isPermitAllow", command_class::permits},
    {"listPermits", command_class::permits},
    {"getPermitValue", command_class::permits},
    {"isPermitAllowByUser", command_class::permits},
    {"GetCGIPermitFilter", command_class::permits},
    {"SetCaptcha", command_class::sessions},
    {"CompareCaptcha", command_class::sessions},
    {"getGroupName", command_class::permits},
    {"SetSession", command_class::sessions},
    {"CheckSession", command_class::sessions},
    {"UpdateCaptchaTime", command_class::sessions},
    {"DelCaptchaItem", command_class::sessions},
});

// Return: the command's traits, which live for ever; null for an unknown one.
[[nodiscard]] constexpr const command_traits* traits_of(std::string_view name) noexcept {
    for (const command_traits& traits : all_command_traits) {
        if (traits.name == name) {
            return &traits;
        }
    }
    return nullptr;
}

}  // namespace veltrancord
