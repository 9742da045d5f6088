#include "access/permits.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>

#include "leaf/message.h"
#include "store/numbered_elements.h"
#include "store/setting.h"

namespace veltrancord {

permit_queue g_permit_list;

namespace {

constexpr std::string_view define_path = "Account.Permission.Define.Permit";

// A missing attribute stays absent, which lists as "(null)" and fails every check.
bool assign_if_found(owned_text& text, std::string_view found) {
    return found.empty() || text.assign(found);
}

// Return: the permit, or null when memory could not be had.
std::unique_ptr<PermitDef> make_permit(int32_t number, std::string_view name) {
    std::unique_ptr<PermitDef> permit(new (std::nothrow) PermitDef);
    if (!permit) {
        return nullptr;
    }
    const SettingPath type(define_path, number, ".Type");
    const SettingPath value(define_path, number, ".Value");
    permit->index = number;
    const bool whole = permit->key.assign(SettingPath("Permit", number).View()) &&
                       permit->name.assign(name) &&
                       assign_if_found(permit->type, ReadAttributeSetting(type)) &&
                       assign_if_found(permit->value, ReadAttributeSetting(value));
    if (!whole) {
        permit.reset();
    }
    return permit;
}

// Appends the permit of that number, unless it has no name.
//
// Return: false when memory could not be had.
bool append_permit(int32_t number) {
    const std::string_view name = ReadSetting(SettingPath(define_path, number));
    if (name.empty()) {
        return true;
    }
    std::unique_ptr<PermitDef> permit = make_permit(number, name);
    if (!permit) {
        return false;
    }
    g_permit_list.append(std::move(permit));
    return true;
}

// Return: false when memory could not be had.
bool append_permits() try {
    const auto numbers =
        ElementNumbers({"Account", "Permission", "Define"}, "Permit", highest_permit_number());
    return std::all_of(numbers.begin(), numbers.end(), append_permit);
} catch (const std::bad_alloc&) {
    return false;
}

std::string_view listed(const owned_text& text) {
    return text.absent() ? "(null)" : text.view();
}

bool list_permit(const PermitDef& permit, reply_text& out) {
    return out.append_all(SettingPath("permit", permit.index).View(), "=", permit.name.view(),
                          "&type=", listed(permit.type), "&value=", listed(permit.value), "\n");
}

}  // namespace

int32_t highest_permit_number() {
    return ReadNumberSetting("Account.Permission.MaxPermDefNum", default_permit_count);
}

void init_permit_list() {
    g_permit_list.clear();
    if (!append_permits()) {
        print_error("%s allocate memory fail !!\n", "init_permit_list");
    }
}

void free_permit_list() {
    g_permit_list.clear();
}

int32_t find_permit_index_by_key(const permit_queue& permits, std::string_view key) {
    for (const PermitDef& permit : permits) {
        if (permit.key.equals(key)) {
            return permit.index;
        }
    }
    return -1;
}

bool list_permits(const permit_queue& permits, reply_text& out) {
    return std::all_of(permits.begin(), permits.end(),
                       [&](const PermitDef& permit) { return list_permit(permit, out); });
}

}  // namespace veltrancord
