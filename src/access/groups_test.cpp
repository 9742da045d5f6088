#include "access/groups.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "access/permits.h"
#include "support/account_document.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

constexpr const char* defined =
    "<Define><Permit1 Type=\"Switch\">Network</Permit1><Permit3 Type=\"Channel\">Channels</Permit3>"
    "<Permit4>Untyped</Permit4></Define>";

std::string permission(const std::string& content) {
    return std::string("<Permission>") + defined + content + "</Permission>";
}

// Every group as "index name[permit=value ...]".
std::vector<std::string> built() {
    init_permit_list();
    init_group_list();
    std::vector<std::string> groups;
    for (const PermGroup& group : g_group_list) {
        std::string text = std::to_string(group.index) + " " + std::string(group.name.view()) + "[";
        for (const PermProperty& property : group.properties) {
            text += std::to_string(property.permit_index) + "=" +
                    std::string(property.value.view()) + " ";
        }
        groups.push_back(text + "]");
    }
    return groups;
}

using texts = std::vector<std::string>;

TEST(GroupList, HoldsNamesAndValues) {
    const account_document account(
        permission("<Group2><Name>Operator</Name><Permit1>NO</Permit1></Group2>"
                   "<Group1><Name>Admin</Name><Permit3>1,2</Permit3><Permit1>YES</Permit1>"
                   "<Permit4>x</Permit4></Group1>"));
    EXPECT_EQ(built(), (texts{"1 Admin[1=YES 3=1,2 4=x ]", "2 Operator[1=NO ]"}));
    const PermGroup& admin = *g_group_list.begin();
    auto property = admin.properties.begin();
    EXPECT_EQ(property->name.view(), "Network");
    EXPECT_EQ(property->type.view(), "Switch");
    ++property;
    EXPECT_EQ(property->name.view(), "Channels");
    EXPECT_EQ(property->type.view(), "Channel");
    ++property;
    EXPECT_EQ(property->name.view(), "Untyped");
    EXPECT_TRUE(property->type.absent());
}

TEST(GroupList, AGroupWithoutANameDoesNotExist) {
    const account_document account(
        permission("<Group1><Permit1>YES</Permit1></Group1><Group2><Name/></Group2>"
                   "<Group3><Name>Third</Name></Group3>"));
    EXPECT_EQ(built(), texts{"3 Third[]"});
}

TEST(GroupList, ValuesForUndefinedPermitsAreNotHeld) {
    const account_document account(
        permission("<Group1><Name>A</Name><Permit1>a</Permit1><Permit2>b</Permit2>"
                   "<Permit3/><Permit5>e</Permit5></Group1>"));
    EXPECT_EQ(built(), texts{"1 A[1=a ]"});
}

TEST(GroupList, ValuesOfPermitsBeyondTheHighestAreNotHeld) {
    const account_document account(
        permission("<MaxPermDefNum>3</MaxPermDefNum>"
                   "<Group1><Name>A</Name><Permit3>c</Permit3><Permit4>d</Permit4></Group1>"));
    EXPECT_EQ(built(), texts{"1 A[3=c ]"});
}

TEST(GroupList, TenNumbersCountUnlessTheConfigurationSays) {
    std::string groups;
    for (int number = 1; number <= 12; ++number) {
        const std::string name = "Group" + std::to_string(number);
        groups += "<" + name + "><Name>G</Name></" + name + ">";
    }
    account_document account(permission(groups));
    EXPECT_EQ(built().size(), 10U);
    account.replace(permission("<MaxGroupNum>11</MaxGroupNum>" + groups));
    EXPECT_EQ(built().size(), 11U);
    account.replace(permission("<MaxGroupNum>-1</MaxGroupNum>" + groups));
    EXPECT_TRUE(built().empty());
}

TEST(GroupList, HugeHighestNumbersCostNothing) {
    const account_document account(
        permission("<MaxGroupNum>2147483647</MaxGroupNum><MaxPermDefNum>9999999999</MaxPermDefNum>"
                   "<Group2147483647><Name>Z</Name><Permit1>z</Permit1></Group2147483647>"
                   "<Group30><Name>Y</Name><Permit4>y</Permit4></Group30>"));
    EXPECT_EQ(built(), (texts{"30 Y[4=y ]", "2147483647 Z[1=z ]"}));
}

TEST(GroupList, GroupsOfOneNameAreAllHeldAndTheFirstIsFound) {
    const account_document account(
        permission("<Group1><Name>A</Name><Permit1>first</Permit1></Group1>"
                   "<Group2><Name>A</Name><Permit1>second</Permit1></Group2>"));
    EXPECT_EQ(built().size(), 2U);
    EXPECT_EQ(find_group(g_group_list, "A")->index, 1);
    EXPECT_EQ(find_group(g_group_list, "a"), nullptr);
    EXPECT_EQ(find_group(g_group_list, ""), nullptr);
}

TEST(GroupList, PropertiesAreFoundByNameAndByNumber) {
    const account_document account(
        "<Permission><Define><Permit1>Same</Permit1><Permit2>Same</Permit2></Define>"
        "<Group1><Name>A</Name><Permit1>first</Permit1><Permit2>second</Permit2></Group1>"
        "</Permission>");
    built();
    const PermGroup& group = *g_group_list.begin();
    EXPECT_EQ(find_property(group, "Same")->value.view(), "first");
    EXPECT_EQ(find_property(group, "same"), nullptr);
    EXPECT_EQ(find_property_by_index(group, 2)->value.view(), "second");
    EXPECT_EQ(find_property_by_index(group, 3), nullptr);
}

TEST(GroupList, ReloadingTakesTheConfigurationAsItIs) {
    account_document account(
        permission("<Group1><Name>A</Name></Group1><Group2><Name>B</Name></Group2>"));
    EXPECT_EQ(built().size(), 2U);
    account.replace(permission("<Group2><Name>B</Name><Permit1>YES</Permit1></Group2>"));
    EXPECT_NE(find_group(g_group_list, "A"), nullptr);
    reload_permissions();
    EXPECT_EQ(find_group(g_group_list, "A"), nullptr);
    EXPECT_NE(find_property(*find_group(g_group_list, "B"), "Network"), nullptr);
    free_group_list();
    EXPECT_TRUE(g_group_list.empty());
    EXPECT_FALSE(g_permit_list.empty());
}

TEST(GroupList, StopsWhereMemoryForAGroupCannotBeHad) {
    const account_document account(
        permission("<Group1><Name>A</Name></Group1><Group2><Name>B</Name></Group2>"
                   "<Group3><Name>C</Name></Group3>"));
    init_permit_list();
    for (const int number : {3, 4}) {
        testing::internal::CaptureStderr();
        const failing_allocation failing(number);
        init_group_list();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "init_group_list allocate memory fail !!\n");
        EXPECT_NE(find_group(g_group_list, "A"), nullptr);
        EXPECT_EQ(find_group(g_group_list, "B"), nullptr);
        EXPECT_EQ(find_group(g_group_list, "C"), nullptr);
    }
}

TEST(GroupList, IsEmptyWhenThereIsNoMemoryToCountTheGroups) {
    const account_document account(permission("<Group1><Name>A</Name></Group1>"));
    init_permit_list();
    testing::internal::CaptureStderr();
    {
        const throwing_allocations_fail none;
        init_group_list();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "init_group_list allocate memory fail !!\n");
    EXPECT_TRUE(g_group_list.empty());
}

TEST(GroupList, WithoutMemoryForAPropertyTheNextGroupIsStillBuilt) {
    const account_document account(
        permission("<Group1><Name>A</Name><Permit1>x</Permit1><Permit3>1</Permit3>"
                   "<Permit4>y</Permit4></Group1>"
                   "<Group2><Name>B</Name><Permit1>z</Permit1></Group2>"));
    init_permit_list();
    // A group takes two pieces of memory and a property four: itself and three texts.
    for (int number = 7; number <= 10; ++number) {
        testing::internal::CaptureStderr();
        const failing_allocation failing(number);
        init_group_list();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "init_group_list allocate pPermProperty memory fail !!\n");
        const PermGroup& first = *find_group(g_group_list, "A");
        EXPECT_NE(find_property(first, "Network"), nullptr);
        EXPECT_EQ(find_property(first, "Channels"), nullptr);
        EXPECT_EQ(find_property(first, "Untyped"), nullptr);
        EXPECT_NE(find_property(*find_group(g_group_list, "B"), "Network"), nullptr);
    }
}

}  // namespace
}  // namespace veltrancord
