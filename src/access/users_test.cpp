#include "access/users.h"

#include <gtest/gtest.h>

#include <string>

#include "support/account_document.h"

namespace veltrancord {
namespace {

std::string user(const std::string& number, const std::string& name, const std::string& level) {
    return "<User" + number + "><Username>" + name + "</Username>" +
           (level.empty() ? "" : "<Level>" + level + "</Level>") + "</User" + number + ">";
}

std::string group(const std::string& number, const std::string& name) {
    return "<Group" + number + "><Name>" + name + "</Name></Group" + number + ">";
}

std::string resolve(std::string_view name) {
    init_permit_list();
    init_group_list();
    return std::string(resolve_user_group(name, g_group_list));
}

TEST(UserGroup, IsTheLevelOfALocalUser) {
    const account_document account(user("1", "root", "Admin") + user("2", "joe", "Operator"));
    EXPECT_EQ(resolve("root"), "Admin");
    EXPECT_EQ(resolve("joe"), "Operator");
    for (const char* unknown : {"Root", "roo", "root1", "", "Admin", "jo"}) {
        EXPECT_EQ(resolve(unknown), "") << unknown;
    }
}

TEST(UserGroup, IsNoneWithoutAConfiguration) {
    EXPECT_EQ(resolve("root"), "");
    const account_document account("");
    EXPECT_EQ(resolve("root"), "");
}

TEST(UserGroup, ASlotWithoutALevelIsPassedOver) {
    const account_document account(user("1", "joe", "") + user("2", "joe", "Second") +
                                   user("3", "joe", "Third") +
                                   "<User4><Username>ann</Username><Level/></User4>");
    EXPECT_EQ(resolve("joe"), "Second");
    EXPECT_EQ(resolve("ann"), "");
}

TEST(UserGroup, SlotsAreTriedInTheOrderOfTheirNumbers) {
    const account_document account(user("7", "joe", "Seventh") + user("12", "joe", "Twelfth") +
                                   user("3", "joe", "Third"));
    EXPECT_EQ(resolve("joe"), "Third");
}

TEST(UserGroup, TwentySlotsCountUnlessTheConfigurationSays) {
    account_document account(user("20", "a", "A") + user("21", "b", "B"));
    EXPECT_EQ(resolve("a"), "A");
    EXPECT_EQ(resolve("b"), "");
    account.replace("<Maxuser>21</Maxuser>" + user("20", "a", "A") + user("21", "b", "B"));
    EXPECT_EQ(resolve("b"), "B");
    account.replace("<Maxuser>19</Maxuser>" + user("20", "a", "A"));
    EXPECT_EQ(resolve("a"), "");
    account.replace("<Maxuser>none</Maxuser>" + user("1", "a", "A"));
    EXPECT_EQ(resolve("a"), "");
    account.replace("<Maxuser></Maxuser>" + user("20", "a", "A"));
    EXPECT_EQ(resolve("a"), "A");
}

TEST(UserGroup, AHugeNumberOfSlotsCostsNothing) {
    const account_document account("<Maxuser>2147483647</Maxuser>" + user("1", "a", "A") +
                                   user("2147483647", "b", "B"));
    EXPECT_EQ(resolve("a"), "A");
    EXPECT_EQ(resolve("b"), "B");
    EXPECT_EQ(resolve("c"), "");
}

TEST(UserGroup, NamesAreCutAt255Bytes) {
    const std::string longest(255, 'u');
    const account_document account(user("1", longest + "more", std::string(300, 'l')));
    EXPECT_EQ(resolve(longest), std::string(255, 'l'));
    EXPECT_EQ(resolve(longest + "m"), "");
    EXPECT_EQ(resolve(longest + "more"), "");
    EXPECT_EQ(resolve(longest.substr(1)), "");
}

TEST(UserGroup, OfTwoElementsOfANameTheLookupDecides) {
    // Each setting is looked up by itself: the name is the first User1's, the level the second's.
    const account_document account(
        "<User1><Username>joe</Username></User1>"
        "<User1><Username>ann</Username><Level>Admin</Level></User1>"
        "<User2><Username/><Username>sue</Username><Level>Admin</Level></User2>");
    EXPECT_EQ(resolve("joe"), "Admin");
    EXPECT_EQ(resolve("ann"), "");
    EXPECT_EQ(resolve("sue"), "");
}

TEST(UserGroup, TheCloudAccountIsTheSupervisor) {
    const account_document account("<Cloud><Username>cloud</Username></Cloud>" +
                                   user("1", "root", "Admin"));
    EXPECT_EQ(resolve("cloud"), "SUPERVISOR");
    EXPECT_EQ(resolve("root"), "Admin");
    EXPECT_EQ(resolve("other"), "");
}

TEST(UserGroup, ALocalUserComesBeforeTheCloudAccount) {
    const account_document account("<Cloud><Username>root</Username></Cloud>" +
                                   user("1", "root", "Admin"));
    EXPECT_EQ(resolve("root"), "Admin");
}

TEST(UserGroup, CloudUsersBelongToTheGroupOfTheirKey) {
    const account_document account(
        "<Permission>" + group("2", "Operator") + group("1", "Viewer") + group("3", "Guest") +
        "</Permission><Cloud><Username>cloud</Username><Operator><Username>ann</Username></"
        "Operator>"
        "<Viewer><Username>joe</Username></Viewer><Other><Username>sue</Username></Other></Cloud>");
    EXPECT_EQ(resolve("ann"), "Operator");
    EXPECT_EQ(resolve("joe"), "Viewer");
    EXPECT_EQ(resolve("sue"), "") << "no group has that name";
}

TEST(UserGroup, TheFirstGroupInListOrderWins) {
    const account_document account("<Permission>" + group("2", "Operator") + group("1", "Viewer") +
                                   "</Permission><Cloud><Username>cloud</"
                                   "Username><Operator><Username>ann</Username></Operator>"
                                   "<Viewer><Username>ann</Username></Viewer></Cloud>");
    EXPECT_EQ(resolve("ann"), "Viewer");
}

TEST(UserGroup, WithoutTheSupervisorThereAreNoCloudUsers) {
    const account_document account(
        "<Permission>" + group("1", "Operator") +
        "</Permission><Cloud><Operator><Username>ann</Username></Operator></Cloud>");
    EXPECT_EQ(resolve("ann"), "");
}

TEST(UserGroup, PowerUsersAreWrittenWithoutTheBlank) {
    const account_document account("<Permission>" + group("1", "POWER USER") +
                                   "</Permission><Cloud><Username>cloud</Username>"
                                   "<POWERUSER><Username>ann</Username></POWERUSER>"
                                   "<POWER_20USER><Username>joe</Username></POWER_20USER></Cloud>");
    EXPECT_EQ(resolve("ann"), "POWERUSER");
    EXPECT_EQ(resolve("joe"), "");
    EXPECT_EQ(find_group(g_group_list, "POWERUSER"), nullptr);
}

TEST(UserGroup, OtherNamesAreEscapedAsEveryPathIs) {
    const account_document account("<Permission>" + group("1", "Day Shift") + group("2", "a.b") +
                                   "</Permission><Cloud><Username>cloud</Username>"
                                   "<Day_20Shift><Username>ann</Username></Day_20Shift>"
                                   "<a><b><Username>joe</Username></b></a></Cloud>");
    EXPECT_EQ(resolve("ann"), "Day Shift");
    EXPECT_EQ(resolve("joe"), "a.b");
}

TEST(UserGroup, TheLongestGroupNameStillMakesAPath) {
    const std::string name(255, 'g');
    const account_document account("<Permission>" + group("1", name) +
                                   "</Permission><Cloud><Username>cloud</Username><" + name +
                                   "><Username>ann</Username></" + name + "></Cloud>");
    EXPECT_EQ(resolve("ann"), name);
}

}  // namespace
}  // namespace veltrancord
