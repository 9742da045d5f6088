#include "access/checks.h"

#include <gtest/gtest.h>

#include <string>

#include "leaf/result.h"

namespace veltrancord {
namespace {

using argument = std::optional<std::string_view>;
constexpr argument none = std::nullopt;

TEST(QueriedPermit, SwitchIsYesOrOnInAnyCase) {
    for (const char* on : {"YES", "yes", "Yes", "yEs", "ON", "on", "On", "oN"}) {
        EXPECT_EQ(check_queried_permit("Switch", on, none), result_ok) << on;
        EXPECT_EQ(check_filter_permit("Switch", on), result_ok) << on;
    }
    for (const char* off :
         {"1", "NO", "OFF", "Y", "YE", "YESS", "ONN", "O", " on", "on ", "true"}) {
        EXPECT_EQ(check_queried_permit("Switch", off, none), result_denied) << off;
        EXPECT_EQ(check_filter_permit("Switch", off), result_denied) << off;
    }
}

TEST(QueriedPermit, SwitchTakesNoNoticeOfTheArgument) {
    EXPECT_EQ(check_queried_permit("Switch", "on", "0"), result_ok);
    EXPECT_EQ(check_queried_permit("Switch", "on", ""), result_ok);
    EXPECT_EQ(check_queried_permit("Switch", "off", "on"), result_denied);
}

TEST(QueriedPermit, ChannelMustBeListed) {
    struct {
        const char* value;
        argument asked;
        int32_t result;
    } const rows[] = {
        {"1,3,5", "3", result_ok},
        {"1,3,5", "1", result_ok},
        {"1,3,5", "5", result_ok},
        {"1,2", "3", result_denied},
        {"13,35", "3", result_denied},
        {"1,2", none, result_denied},
        {"0", none, result_denied},
        {"1,2", "", result_denied},
        {"1,0", "", result_ok},  // no digits: channel 0
        {"1, 3 ,5", "3", result_ok},
        {"1,3x,5", " 3abc", result_ok},
        {"1,+3,5", "3", result_ok},
        {"1,-3,5", "-3", result_ok},
        {"1,03,5", "3", result_ok},
        {"1,,5", "0", result_ok},
        {"1,5,", "0", result_ok},
        {",1,5", "0", result_ok},
        {"1,5", "0", result_denied},
        {"all", "0", result_ok},
        {"1 2", "2", result_denied},
        {"-1", "1", result_denied},
        {"1,3", "3&more", result_ok},
        {"3", "99999999999999999999", result_denied},
        {"2147483647", "99999999999999999999", result_ok},  // the nearest number there is
        {"-1", "4294967295", result_denied},
        {"1", "4294967297", result_denied},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(check_queried_permit("Channel", row.value, row.asked), row.result)
            << row.value << " asked for " << row.asked.value_or("nothing");
    }
}

TEST(QueriedPermit, OtherTypesAreNotFound) {
    for (const char* type : {"switch", "SWITCH", "channel", "Level", "", "Switc", "Switch "}) {
        EXPECT_EQ(check_queried_permit(type, "YES", "1"), result_not_found) << type;
        EXPECT_EQ(check_filter_permit(type, "YES"), result_not_found) << type;
    }
    EXPECT_EQ(check_queried_permit(std::string_view(), "YES", "1"), result_not_found);
    EXPECT_EQ(check_filter_permit(std::string_view(), "YES"), result_not_found);
}

TEST(FilterPermit, ChannelIsRefusedOnlyByMinusOne) {
    EXPECT_EQ(check_filter_permit("Channel", "1,2,3"), result_ok);
    EXPECT_EQ(check_filter_permit("Channel", "0"), result_ok);
    EXPECT_EQ(check_filter_permit("Channel", "none"), result_ok);
    EXPECT_EQ(check_filter_permit("Channel", "- 1"), result_ok);
    EXPECT_EQ(check_filter_permit("Channel", "-"), result_ok);
    EXPECT_EQ(check_filter_permit("Channel", "-1"), result_denied);
    EXPECT_EQ(check_filter_permit("Channel", "1,-1"), result_denied);
    EXPECT_EQ(check_filter_permit("Channel", "1,-1,2"), result_denied);
    EXPECT_EQ(check_filter_permit("Channel", "-10"), result_denied);
    EXPECT_EQ(check_filter_permit("Channel", "3-1"), result_denied);
}

}  // namespace
}  // namespace veltrancord
