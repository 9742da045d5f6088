#include "service/commands.h"

#include <algorithm>
#include <array>

#include "access/handlers.h"
#include "eventlog/log_handlers.h"
#include "store/attribute_handlers.h"
#include "store/read_handlers.h"
#include "update/persistence_handlers.h"
#include "update/write_handlers.h"

namespace veltrancord {

namespace {

// The order of the rows is part of the interface: a handler is told its row. Descriptions stand as
// they always did, the misspelt and the doubled one too, since tools print them.
constexpr std::array rows = std::to_array<command_row>({
    {"read", read_handle, "read xml value"},
    {"readAndFilter", read_filter_handle, "read xml and filter"},
    {"readwithlevel", readwithlevel_handle, "read xml value with level"},
    {"write", write_handle, "write xml value"},
    {"upload", upload_handle, "upload xml"},
    {"download", download_handle, "download xml"},
    {"remove", remove_handle, "remove xml item"},
    {"readlog", readlog_handle, "read event log"},
    {"writelog", writelog_handle, "write event log"},
    {"readvalue", readvalue_handle, "read one xml item value"},
    {"cleanlog", cleanlog_handle, "clean event log"},
    {"geteventcount", geteventcount_handle, "get event total count"},
    {"maxlogcount", maxlogcount_handle, "get event log max count"},
    {"readattr", readattr_handle, "read xml attr"},
    {"writeattr", writeattr_handle, "write xml attr"},
    {"readsingleattr", readsingleattr_handle, "read single attr"},
    {"syncxml", syncxml_handle, "sync xml from flash"},
    {"writedbmem", writedbmem_handle, "write xml to memory"},
    {"syncmemtoflash", syncmemtoflash_handle, "sync memory to flash"},
    {"restore", restore_handle, "resotre xml to flash"},
    {"writelogwithtime", writelogwithtime_handle, "write log with time"},
    {"XMLDBCallBack", xmldb_callback_handle, "call back to system for backup xml"},
    {"SyncPermit", SyncPermit_handle, "sync permit handle"},
    {"isPermitAllow", isPermitAllow_handle, "check permit is allow to use this function"},
    {"listPermits", listPermits_handle, "list permits"},
    {"getPermitValue", getPermitValue_handle, "get permit value"},
    {"isPermitAllowByUser", isPermitAllowByUser_handle, "check permit is allow by username"},
    {"GetCGIPermitFilter", GetCGIPermitFilter_handle, "Permit filter for cgi command"},
    {"SetCaptcha", SetCaptcha_handle, "Set Captcha handle"},
    {"CompareCaptcha", CompareCaptcha_handle, "Compare Captcha handle"},
    {"getGroupName", getGroupName_handle, "Get User Group handle"},
    {"SetSession", SetSession_handle, "Set session handle"},
    {"CheckSession", CheckSession_handle, "Set session handle"},
    {"UpdateCaptchaTime", UpdateCaptchaTime_handle, "Update Capcha life time"},
    {"DelCaptchaItem", DelCaptchaItem_handle, "Delete Captcha Item"},
});

constexpr bool names_are_unique() {
    for (std::size_t row = 0; row < rows.size(); ++row) {
        for (std::size_t other = row + 1; other < rows.size(); ++other) {
            if (rows[row].name == rows[other].name) {
                return false;
            }
        }
    }
    return true;
}

static_assert(rows.size() == 35);
static_assert(names_are_unique());

// Where a name may be in the table: a hash that tells all of them apart, so that a look-up touches
// one row and not all 35.
constexpr std::size_t place_count = 128;

constexpr std::size_t place_of(std::string_view name, uint32_t factor) {
    if (name.empty()) {
        return 0;
    }
    const auto letter = [name](std::size_t at) { return static_cast<unsigned char>(name[at]); };
    const uint32_t letters = letter(0) | uint32_t{letter(name.size() / 2)} << 8U |
                             uint32_t{letter(name.size() - 1)} << 16U |
                             static_cast<uint32_t>(name.size()) << 24U;
    return letters * factor >> 25U;
}

constexpr int8_t no_row = -1;

struct name_index {
    uint32_t factor = 0;
    std::array<int8_t, place_count> row_at;
};

constexpr bool fill(name_index& index) {
    index.row_at.fill(no_row);
    for (std::size_t row = 0; row < rows.size(); ++row) {
        int8_t& place = index.row_at[place_of(rows[row].name, index.factor)];
        if (place != no_row) {
            return false;
        }
        place = static_cast<int8_t>(row);
    }
    return true;
}

// Odd factors that differ in all their bits are tried until no two names meet.
constexpr name_index names = [] {
    name_index index{.factor = 0x9e3779b1U, .row_at = {}};
    while (!fill(index)) {
        index.factor = index.factor * 0x2c9277b5U + 2;
    }
    return index;
}();

int32_t find_own_command(std::string_view name) {
    const int8_t place = names.row_at[place_of(name, names.factor)];
    if (place == no_row) {
        return no_row;
    }
    const command_row& row = rows[static_cast<std::size_t>(place)];
    return row.name == name && row.handler != nullptr ? place : no_row;
}

}  // namespace

std::span<const command_row> command_table() {
    return rows;
}

int32_t find_command(std::span<const command_row> table, std::string_view name) {
    if (table.data() == rows.data() && table.size() == rows.size()) {
        return find_own_command(name);
    }
    const auto found = std::find_if(table.begin(), table.end(), [name](const command_row& row) {
        return row.name == name && row.handler != nullptr;
    });
    return found != table.end() ? static_cast<int32_t>(found - table.begin()) : -1;
}

}  // namespace veltrancord
