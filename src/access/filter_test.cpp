#include "access/filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/account_document.h"
#include "support/allocation_seam.h"

namespace veltrancord {
namespace {

constexpr std::nullopt_t no_params = std::nullopt;

std::string numbered(const char* name, int number) {
    return std::string(name).append(std::to_string(number));
}

std::string tag(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

// A command of a rule: its text and its parameters.
struct command {
    std::string text;
    std::vector<std::string> params;
};

std::string rule(int number, int permit, const std::vector<command>& commands) {
    std::string content = tag("RelatedPermit", numbered("Permit", permit));
    int command_number = 1;
    for (const command& one : commands) {
        std::string inner = tag("CMD", one.text);
        int param_number = 1;
        for (const std::string& param : one.params) {
            inner += tag(numbered("P", param_number++), param);
        }
        content += tag(numbered("C", command_number++), inner);
    }
    return tag(numbered("R", number), content);
}

std::string configuration(const std::string& rules) {
    std::string permits;
    for (int number = 1; number <= 9; ++number) {
        permits += tag(numbered("Permit", number), numbered("p", number));
    }
    return tag("Permission", tag("Define", permits)) + tag("CGIPermitDenyFilter", rules);
}

// The related permit of the deciding rule, 0 for none.
int32_t decide(std::string_view cmd, std::optional<std::string_view> params = no_params) {
    const FilterRule* const found = find_filter_rule(g_filter_list, cmd, params);
    return found != nullptr ? found->related_permit : 0;
}

template <class T>
int size(const tail_queue<T>& queue) {
    int count = 0;
    for ([[maybe_unused]] const T& element : queue) {
        ++count;
    }
    return count;
}

TEST(FilterList, IsEmptyWithoutRules) {
    const account_document account(configuration(""));
    account_document::build_lists();
    EXPECT_TRUE(g_filter_list.empty());
    EXPECT_EQ(decide("apply"), 0);
    EXPECT_EQ(decide("*"), 0);
}

TEST(FilterList, HoldsRulesCommandsAndParameters) {
    const account_document account(
        configuration(rule(1, 3, {{"apply", {"reboot", "reset"}}, {"format", {}}})));
    account_document::build_lists();
    ASSERT_EQ(size(g_filter_list), 1);
    const FilterRule& first = *g_filter_list.begin();
    EXPECT_EQ(first.related_permit, 3);
    ASSERT_EQ(size(first.commands), 2);
    auto one = first.commands.begin();
    EXPECT_EQ(one->cmd.view(), "apply");
    ASSERT_EQ(size(one->params), 2);
    EXPECT_EQ(one->params.begin()->param.view(), "reboot");
    EXPECT_EQ(std::next(one->params.begin())->param.view(), "reset");
    ++one;
    EXPECT_EQ(one->cmd.view(), "format");
    EXPECT_TRUE(one->params.empty());
}

TEST(FilterList, AMissingRuleEndsTheRules) {
    const account_document account(
        configuration(rule(1, 1, {{"a", {}}}) + rule(3, 3, {{"c", {}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("a"), 1);
    EXPECT_EQ(decide("c"), 0);
}

TEST(FilterList, ARuleOfAnUndefinedPermitEndsTheRules) {
    const account_document account(configuration(
        rule(1, 1, {{"a", {}}}) + rule(2, 77, {{"b", {}}}) + rule(3, 3, {{"c", {}}})));
    account_document::build_lists();
    EXPECT_EQ(size(g_filter_list), 1);
    EXPECT_EQ(decide("b"), 0);
    EXPECT_EQ(decide("c"), 0);
}

TEST(FilterList, PermitsAreNamedByTheirKeys) {
    const account_document account(
        configuration(tag("R1", tag("RelatedPermit", "p1") + tag("C1", tag("CMD", "a")))));
    account_document::build_lists();
    EXPECT_TRUE(g_filter_list.empty());
}

TEST(FilterList, AMissingCommandOrParameterEndsTheirs) {
    const account_document account(
        configuration(tag("R1", tag("RelatedPermit", "Permit1") +
                                    tag("C1", tag("CMD", "a") + tag("P1", "x") + tag("P3", "z")) +
                                    tag("C2", tag("P1", "x")) + tag("C3", tag("CMD", "c")))));
    account_document::build_lists();
    EXPECT_EQ(decide("a", "x"), 1);
    EXPECT_EQ(decide("a", "z"), 0);
    EXPECT_EQ(decide("c"), 0);
}

TEST(FilterList, ARuleWithoutCommandsIsStillOne) {
    const account_document account(configuration(rule(1, 1, {}) + rule(2, 2, {{"b", {}}})));
    account_document::build_lists();
    EXPECT_EQ(size(g_filter_list), 2);
    EXPECT_EQ(decide("b"), 2);
}

TEST(FilterList, LimitsAreInclusive) {
    const int many = 31;
    std::string rules;
    for (int number = 1; number <= 101; ++number) {
        rules += rule(number, 1, {{numbered("r", number), {}}});
    }
    account_document account(configuration(rules));
    account_document::build_lists();
    EXPECT_EQ(size(g_filter_list), 100);
    EXPECT_EQ(decide("r100"), 1);
    EXPECT_EQ(decide("r101"), 0);

    std::vector<command> commands;
    std::vector<std::string> params;
    for (int number = 1; number <= many; ++number) {
        commands.push_back({numbered("c", number), {}});
        params.push_back(numbered("[p", number) + "]");
    }
    account.replace(configuration(rule(1, 1, commands) + rule(2, 2, {{"x", params}})));
    reload_filter_list();
    EXPECT_EQ(decide("c30"), 1);
    EXPECT_EQ(decide("c31"), 0);
    EXPECT_EQ(decide("x", "a[p30]b"), 2);
    EXPECT_EQ(decide("x", "a[p31]b"), 0);
}

TEST(FilterList, ParametersCatchAnywhereInTheText) {
    const account_document account(configuration(rule(1, 1, {{"apply", {"reboot", "reset"}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("apply", "action=reboot_now"), 1);
    EXPECT_EQ(decide("apply", "reset"), 1);
    EXPECT_EQ(decide("apply", "a=1&b=preset"), 1);
    EXPECT_EQ(decide("apply", "action=save"), 0);
    EXPECT_EQ(decide("apply", "Reboot"), 0);
    EXPECT_EQ(decide("apply", "reboo"), 0);
    EXPECT_EQ(decide("apply", ""), 0);
    EXPECT_EQ(decide("apply", no_params), 0);
    EXPECT_EQ(decide("Apply", "reboot"), 0);
    EXPECT_EQ(decide("appl", "reboot"), 0);
}

TEST(FilterList, WithoutParametersACommandIsCaughtAlways) {
    const account_document account(configuration(rule(1, 1, {{"format", {}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("format", no_params), 1);
    EXPECT_EQ(decide("format", ""), 1);
    EXPECT_EQ(decide("format", "disk=2"), 1);
}

TEST(FilterList, TheFirstMatchDecides) {
    const account_document account(configuration(rule(1, 1, {{"apply", {"reboot"}}}) +
                                                 rule(2, 2, {{"apply", {"save"}}}) +
                                                 rule(3, 3, {{"apply", {}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("apply", "reboot save"), 1);
    EXPECT_EQ(decide("apply", "save"), 2);
    EXPECT_EQ(decide("apply", "other"), 3);
    EXPECT_EQ(decide("apply"), 3);
}

TEST(FilterList, AStarCatchesWhatNoEarlierEntryDoes) {
    const account_document account(configuration(rule(1, 1, {{"early", {"x"}}}) +
                                                 rule(2, 2, {{"*", {"no matter"}}}) +
                                                 rule(3, 3, {{"late", {}}, {"early", {}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("early", "x"), 1);
    EXPECT_EQ(decide("early", "y"), 2);
    EXPECT_EQ(decide("late"), 2);
    EXPECT_EQ(decide("anything", "x"), 2);
    EXPECT_EQ(decide(""), 2);
}

TEST(FilterList, AStarAskedForByNameIsACommandLikeAnyOther) {
    const account_document account(
        configuration(rule(1, 1, {{"*", {"x"}}}) + rule(2, 2, {{"*", {}}})));
    account_document::build_lists();
    EXPECT_EQ(decide("*", "x"), 1);
    EXPECT_EQ(decide("*", "y"), 2);
    EXPECT_EQ(decide("*"), 2);
    EXPECT_EQ(decide("other"), 1);
}

TEST(FilterList, IsRebuiltOnlyWhenToldTo) {
    account_document account(configuration(rule(1, 1, {{"old", {}}})));
    account_document::build_lists();
    account.replace(configuration(rule(1, 2, {{"new", {}}})));
    reload_permissions();
    EXPECT_EQ(decide("old"), 1);
    EXPECT_EQ(decide("new"), 0);
    reload_filter_list();
    EXPECT_EQ(decide("old"), 0);
    EXPECT_EQ(decide("new"), 2);
    free_filter_list();
    EXPECT_TRUE(g_filter_list.empty());
    EXPECT_EQ(decide("new"), 0);
}

TEST(FilterList, KeepsWhatWasBuiltWhenMemoryCannotBeHad) {
    const account_document account(
        configuration(rule(1, 1, {{"a", {}}}) + rule(2, 2, {{"b", {"x", "y"}}, {"c", {}}})));
    init_permit_list();
    // A rule takes one piece of memory, a command two, a parameter two. Which commands are known
    // after the failure of each: a missing parameter catches more, never less.
    struct {
        int number;
        const char* known;
    } const rows[] = {{1, ""},   {2, ""},   {3, ""},   {4, "a"},   {5, "a"},   {6, "a"},
                      {7, "ab"}, {8, "ab"}, {9, "ab"}, {10, "ab"}, {11, "ab"}, {12, "ab"}};
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        const failing_allocation failing(row.number);
        init_filter_list();
        EXPECT_TRUE(failing_allocation::reached());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "init_filter_list allocate memory fail !!\n");
        std::string known;
        for (const char* cmd : {"a", "b", "c"}) {
            known += decide(cmd, "x") != 0 ? cmd : "";
        }
        EXPECT_EQ(known, row.known) << row.number;
    }
}

}  // namespace
}  // namespace veltrancord
