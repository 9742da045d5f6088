#include "access/permits.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/account_document.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

std::vector<int32_t> built() {
    init_permit_list();
    std::vector<int32_t> indices;
    for (const PermitDef& permit : g_permit_list) {
        indices.push_back(permit.index);
    }
    return indices;
}

std::string define(const std::string& permits, const std::string& before = "") {
    return "<Permission>" + before + "<Define>" + permits + "</Define></Permission>";
}

std::string numbered(int first, int last) {
    std::string text;
    for (int number = first; number <= last; ++number) {
        const std::string name = "Permit" + std::to_string(number);
        text += "<" + name + ">name" + std::to_string(number) + "</" + name + ">";
    }
    return text;
}

TEST(PermitList, HoldsWhatIsDefined) {
    const account_document account(
        define("<Permit1 Type=\"Switch\" Value=\"NO\">Network</Permit1>"
               "<Permit3 Type=\"Channel\">Channels</Permit3>"));
    EXPECT_EQ(built(), (std::vector<int32_t>{1, 3}));
    auto permit = g_permit_list.begin();
    EXPECT_EQ(permit->key.view(), "Permit1");
    EXPECT_EQ(permit->name.view(), "Network");
    EXPECT_EQ(permit->type.view(), "Switch");
    EXPECT_EQ(permit->value.view(), "NO");
    ++permit;
    EXPECT_EQ(permit->key.view(), "Permit3");
    EXPECT_EQ(permit->name.view(), "Channels");
    EXPECT_EQ(permit->type.view(), "Channel");
    EXPECT_TRUE(permit->value.absent());
}

TEST(PermitList, EmptyAttributesAreMissing) {
    const account_document account(define("<Permit1 Type=\"\" Value=\"\">Network</Permit1>"));
    built();
    EXPECT_TRUE(g_permit_list.begin()->type.absent());
    EXPECT_TRUE(g_permit_list.begin()->value.absent());
}

TEST(PermitList, APermitWithoutANameDoesNotExist) {
    const account_document account(
        define("<Permit1/><Permit2></Permit2><Permit3><A/>late</Permit3><Permit4>x</Permit4>"));
    EXPECT_EQ(built(), std::vector<int32_t>{4});
}

TEST(PermitList, TwentyNumbersCountUnlessTheConfigurationSays) {
    account_document account(define(numbered(1, 25)));
    EXPECT_EQ(built().size(), 20U);
    account.replace(define(numbered(1, 25), "<MaxPermDefNum>24</MaxPermDefNum>"));
    EXPECT_EQ(built().size(), 24U);
    account.replace(define(numbered(1, 25), "<MaxPermDefNum>0</MaxPermDefNum>"));
    EXPECT_TRUE(built().empty());
    account.replace(define(numbered(1, 25), "<MaxPermDefNum>-3</MaxPermDefNum>"));
    EXPECT_TRUE(built().empty());
    account.replace(define(numbered(1, 25), "<MaxPermDefNum>many</MaxPermDefNum>"));
    EXPECT_TRUE(built().empty());
    account.replace(define(numbered(1, 25), "<MaxPermDefNum></MaxPermDefNum>"));
    EXPECT_EQ(built().size(), 20U);
    account.replace(define(numbered(1, 25), "<MaxPermDefNum> 22 permits</MaxPermDefNum>"));
    EXPECT_EQ(built().size(), 22U);
}

TEST(PermitList, AHugeHighestNumberCostsNothing) {
    for (const char* highest : {"2147483647", "99999999999999999999"}) {
        const account_document account(
            define("<Permit2147483647>last</Permit2147483647><Permit7>x</Permit7>"
                   "<Permit2147483648>beyond</Permit2147483648>",
                   std::string("<MaxPermDefNum>") + highest + "</MaxPermDefNum>"));
        EXPECT_EQ(built(), (std::vector<int32_t>{7, 2147483647}));
    }
}

TEST(PermitList, IsInTheOrderOfNumbersAndNotOfTheDocument) {
    const account_document account(
        define("<Permit9>i</Permit9><Permit2>b</Permit2><Permit5>e</Permit5>"));
    EXPECT_EQ(built(), (std::vector<int32_t>{2, 5, 9}));
}

TEST(PermitList, OfTwoElementsOfANameTheLookupDecides) {
    // The first Permit1 counts, with or without a text; a second Define does where it alone has it.
    const account_document account(
        "<Permission><Define><Permit1/><Permit1>second</Permit1><Permit2>first</Permit2></Define>"
        "<Define><Permit2>second</Permit2><Permit3>third</Permit3></Define></Permission>");
    EXPECT_EQ(built(), (std::vector<int32_t>{2, 3}));
    EXPECT_EQ(g_permit_list.begin()->name.view(), "first");
}

TEST(PermitList, TextsAreCutAt255Bytes) {
    const account_document account(define("<Permit1 Type=\"" + std::string(255, 't') +
                                          "\" Value=\"" + std::string(256, 'v') + "\">" +
                                          std::string(300, 'n') + "</Permit1>"));
    built();
    const PermitDef& permit = *g_permit_list.begin();
    EXPECT_EQ(permit.name.view(), std::string(255, 'n'));
    EXPECT_EQ(permit.type.view(), std::string(255, 't'));
    EXPECT_EQ(permit.value.view(), std::string(255, 'v'));
}

TEST(PermitList, IsBuiltAnewEachTime) {
    account_document account(define(numbered(1, 3)));
    EXPECT_EQ(built().size(), 3U);
    EXPECT_EQ(built().size(), 3U);
    account.replace("");
    EXPECT_TRUE(built().empty());
    account.replace(define(numbered(4, 4)));
    EXPECT_EQ(built(), std::vector<int32_t>{4});
    free_permit_list();
    EXPECT_TRUE(g_permit_list.empty());
}

TEST(PermitList, IsFoundByKey) {
    const account_document account(define("<Permit2>b</Permit2><Permit12>l</Permit12>"));
    built();
    EXPECT_EQ(find_permit_index_by_key(g_permit_list, "Permit2"), 2);
    EXPECT_EQ(find_permit_index_by_key(g_permit_list, "Permit12"), 12);
    for (const char* key : {"Permit1", "permit2", "Permit02", "b", ""}) {
        EXPECT_EQ(find_permit_index_by_key(g_permit_list, key), -1) << key;
    }
}

TEST(PermitList, IsEmptyWhenThereIsNoMemoryToCountThePermits) {
    const account_document account(define("<Permit1>a</Permit1>"));
    testing::internal::CaptureStderr();
    {
        const throwing_allocations_fail none;
        init_permit_list();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "init_permit_list allocate memory fail !!\n");
    EXPECT_TRUE(g_permit_list.empty());
}

TEST(PermitList, StopsWhereMemoryCannotBeHad) {
    const account_document account(
        define("<Permit1>a</Permit1><Permit2 Type=\"Switch\" Value=\"x\">b</Permit2>"
               "<Permit3>c</Permit3>"));
    // The first permit takes three pieces: itself, its key and its name; the second two more.
    for (int number = 4; number <= 8; ++number) {
        testing::internal::CaptureStderr();
        const failing_allocation failing(number);
        EXPECT_EQ(built(), std::vector<int32_t>{1}) << number;
        EXPECT_TRUE(failing_allocation::reached());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "init_permit_list allocate memory fail !!\n");
    }
}

}  // namespace
}  // namespace veltrancord
