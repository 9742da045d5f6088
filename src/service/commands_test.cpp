#include "service/commands.h"

#include <gtest/gtest.h>

#include <array>
#include <string_view>
#include <utility>

namespace veltrancord {
namespace {

using name_and_description = std::pair<std::string_view, std::string_view>;

// Written out a second time on purpose: programs outside know commands by name, and tools by
// position.
constexpr std::array<name_and_description, 35> expected = {{
    {"read", "read xml value"},
    {"readAndFilter", "read xml and filter"},
    {"readwithlevel", "read xml value with level"},
    {"write", "write xml value"},
    {"upload", "upload xml"},
    {"download", "download xml"},
    {"remove", "remove xml item"},
    {"readlog", "read event log"},
    {"writelog", "write event log"},
    {"readvalue", "read one xml item value"},
    {"cleanlog", "clean event log"},
    {"geteventcount", "get event total count"},
    {"maxlogcount", "get event log max count"},
    {"readattr", "read xml attr"},
    {"writeattr", "write xml attr"},
    {"readsingleattr", "read single attr"},
    {"syncxml", "sync xml from flash"},
    {"writedbmem", "write xml to memory"},
    {"syncmemtoflash", "sync memory to flash"},
    {"restore", "resotre xml to flash"},
    {"writelogwithtime", "write log with time"},
    {"XMLDBCallBack", "call back to system for backup xml"},
    {"SyncPermit", "sync permit handle"},
    {"isPermitAllow", "check permit is allow to use this function"},
    {"listPermits", "list permits"},
    {"getPermitValue", "get permit value"},
    {"isPermitAllowByUser", "check permit is allow by username"},
    {"GetCGIPermitFilter", "Permit filter for cgi command"},
    {"SetCaptcha", "Set Captcha handle"},
    {"CompareCaptcha", "Compare Captcha handle"},
    {"getGroupName", "Get User Group handle"},
    {"SetSession", "Set session handle"},
    {"CheckSession", "Set session handle"},
    {"UpdateCaptchaTime", "Update Capcha life time"},
    {"DelCaptchaItem", "Delete Captcha Item"},
}};

TEST(CommandTable, HasIts35RowsInOrder) {
    const std::span<const command_row> rows = command_table();
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
        EXPECT_EQ(rows[row].name, expected[row].first) << row;
        EXPECT_EQ(rows[row].description, expected[row].second) << row;
    }
}

TEST(CommandTable, HasEachOfItsNamesFoundInItsRow) {
    const command_index index(command_table());
    for (std::size_t row = 0; row < expected.size(); ++row) {
        EXPECT_EQ(index.find(expected[row].first), static_cast<int32_t>(row));
    }
}

TEST(CommandTable, EachRowHasAHandler) {
    for (const command_row& row : command_table()) {
        EXPECT_NE(row.handler, nullptr) << row.name;
    }
}

}  // namespace
}  // namespace veltrancord
