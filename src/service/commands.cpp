#include "service/commands.h"

#include <array>

#include "access/handlers.h"
#include "eventlog/handlers.h"
#include "guard/classes.h"
#include "store/handlers.h"
#include "update/handlers.h"
#include "update/program_queue.h"
#include "update/saving.h"

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

// Each command is in exactly one class of the guard's: the two tables have the same names in the
// same order.
constexpr bool each_has_a_class() {
    for (std::size_t row = 0; row < rows.size(); ++row) {
        if (rows[row].name != all_command_traits[row].name) {
            return false;
        }
    }
    return true;
}

static_assert(rows.size() == 35);
static_assert(names_are_unique());
static_assert(rows.size() == all_command_traits.size() && each_has_a_class());

constexpr std::array<follow_up*, 2> follow_ups = {save_changed_documents, run_program_queue};

}  // namespace

std::span<const command_row> command_table() {
    return rows;
}

std::span<follow_up* const> command_follow_ups() {
    return follow_ups;
}

}  // namespace veltrancord
