#include "store/numbered_elements.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/account_document.h"

namespace veltrancord {
namespace {

std::vector<int32_t> numbers(int32_t max, std::size_t at_most = SIZE_MAX) {
    std::vector<int32_t> found;
    visit_numbers({"Account", "Part"}, "N", max, [&](int32_t number) {
        found.push_back(number);
        return found.size() < at_most;
    });
    return found;
}

TEST(ElementNumber, IsWhatAPathWouldSpell) {
    EXPECT_EQ(element_number("Permit1", "Permit"), 1);
    EXPECT_EQ(element_number("Permit20", "Permit"), 20);
    EXPECT_EQ(element_number("Permit2147483647", "Permit"), 2147483647);
    for (const char* name : {"Permit", "Permit0", "Permit01", "Permit-1", "Permit+1", "Permit 1",
                             "Permit1 ", "Permit1a", "Permita", "permit1", "Permi1", "XPermit1",
                             "Permit2147483648", "Permit99999999999999999999", ""}) {
        EXPECT_EQ(element_number(name, "Permit"), 0) << name;
    }
}

TEST(NumberedElements, AreVisitedInRisingOrderOnceEach) {
    const account_document account("<Part><N7/><N2/><N10/><M3/><N2/><N02/><N1/></Part>");
    EXPECT_EQ(numbers(20), (std::vector<int32_t>{1, 2, 7, 10}));
    EXPECT_EQ(numbers(7), (std::vector<int32_t>{1, 2, 7}));
    EXPECT_EQ(numbers(6), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(numbers(20, 2), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(numbers(2147483647), (std::vector<int32_t>{1, 2, 7, 10}));
    EXPECT_TRUE(numbers(0).empty());
    EXPECT_TRUE(numbers(-1).empty());
}

TEST(NumberedElements, AreFoundBelowEveryElementOfTheParentsNames) {
    const account_document account(
        "<Part><N3/></Part><Other><N4/></Other><Part/><Part><N1/><Deep><N5/></Deep></Part><N6/>");
    EXPECT_EQ(numbers(20), (std::vector<int32_t>{1, 3}));
}

TEST(NumberedElements, AreNoneWithoutTheDocument) {
    EXPECT_TRUE(numbers(20).empty());
}

TEST(NumberedElements, OnlyApprovedOnesAreVisited) {
    const account_document account("<Part><N1/><N2>x</N2><N3>x</N3></Part>");
    std::vector<int32_t> found;
    visit_numbers(
        {"Account", "Part"}, "N", 20,
        [](const TiXmlElement& element) { return element.GetText() != nullptr; },
        [&](int32_t number) {
            found.push_back(number);
            return true;
        });
    EXPECT_EQ(found, (std::vector<int32_t>{2, 3}));
}

// More numbers than are collected at a time, in any order of the elements.
TEST(NumberedElements, AreFoundHoweverManyThereAre) {
    std::mt19937 random(3);
    for (const int32_t count : {63, 64, 65, 128, 129, 1000}) {
        std::set<int32_t> expected;
        while (expected.size() < static_cast<std::size_t>(count)) {
            expected.insert(static_cast<int32_t>(random() % 5000 + 1));
        }
        std::vector<int32_t> order(expected.begin(), expected.end());
        std::shuffle(order.begin(), order.end(), random);
        std::string content;
        for (const int32_t number : order) {
            content += "<N" + std::to_string(number) + "/>";
        }
        const account_document account("<Part>" + content + "</Part>");
        EXPECT_EQ(numbers(5000), std::vector<int32_t>(expected.begin(), expected.end())) << count;
    }
}

}  // namespace
}  // namespace veltrancord
