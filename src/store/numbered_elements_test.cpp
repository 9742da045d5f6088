#include "store/numbered_elements.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/account_document.h"

namespace veltrancord {
namespace {

std::vector<int32_t> numbers(int32_t max) {
    return ElementNumbers({"Account", "Part"}, "N", max);
}

TEST(ElementNumber, IsWhatAPathWouldSpell) {
    EXPECT_EQ(ElementNumber("Permit1", "Permit"), 1);
    EXPECT_EQ(ElementNumber("Permit20", "Permit"), 20);
    EXPECT_EQ(ElementNumber("Permit0", "Permit"), 0);
    EXPECT_EQ(ElementNumber("Permit2147483647", "Permit"), 2147483647);
    for (const char* name : {"Permit", "Permit00", "Permit01", "Permit-1", "Permit-0", "Permit+1",
                             "Permit 1", "Permit1 ", "Permit1a", "Permita", "permit1", "Permi1",
                             "XPermit1", "Permit2147483648", "Permit99999999999999999999", ""}) {
        EXPECT_EQ(ElementNumber(name, "Permit"), std::nullopt) << name;
    }
}

TEST(NumberedElements, AreFoundInRisingOrderOnceEach) {
    const account_document account("<Part><N7/><N2/><N10/><M3/><N2/><N02/><N0/><N1/></Part>");
    EXPECT_EQ(numbers(20), (std::vector<int32_t>{1, 2, 7, 10}));
    EXPECT_EQ(numbers(7), (std::vector<int32_t>{1, 2, 7}));
    EXPECT_EQ(numbers(6), (std::vector<int32_t>{1, 2}));
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

// Of many that all count, each is looked at once: a walk for each handful of them would take a
// client's question with many users half a second and more.
TEST(NumberedElements, AreLookedAtOnceHoweverManyThereAre) {
    constexpr int32_t count = 1000;
    std::string content;
    for (int32_t number = count; number > 0; --number) {
        content += "<N" + std::to_string(number) + "/>";
    }
    const account_document account("<Part>" + content + "</Part>");
    int32_t looks = 0;
    const auto found =
        ElementNumbers({"Account", "Part"}, "N", count, [&looks](const TiXmlElement&) {
            ++looks;
            return true;
        });
    EXPECT_EQ(looks, count);
    ASSERT_EQ(found.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(found.front(), 1);
    EXPECT_EQ(found.back(), count);
}

TEST(NumberedElements, OnlyThoseThatCountAreFound) {
    const account_document account("<Part><N1/><N2>x</N2><N3>x</N3></Part>");
    EXPECT_EQ(
        ElementNumbers({"Account", "Part"}, "N", 20,
                       [](const TiXmlElement& element) { return element.GetText() != nullptr; }),
        (std::vector<int32_t>{2, 3}));
}

}  // namespace
}  // namespace veltrancord
