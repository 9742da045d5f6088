#include "store/path.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace veltrancord {
namespace {

using names = std::vector<std::string>;

names Names(const XmlPath& list) {
    names result;
    for (std::size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(std::string(list[i].name), list[i].Text());
        result.emplace_back(list[i].Text());
    }
    return result;
}

names Split(std::string_view path) {
    XmlPath list;
    const bool split = SplitXmlPath(path, list);
    EXPECT_EQ(split, !list.empty());
    return Names(list);
}

std::string Join(const XmlPath& list, std::string_view before = "", std::size_t size = 256) {
    std::vector<char> buffer(size, '#');
    buffer[before.copy(buffer.data(), before.size())] = '\0';
    JoinXmlPath(list, buffer.data(), size);
    return buffer.data();
}

TEST(Path, SplitsAtDotsAndDropsEmptyComponents) {
    EXPECT_EQ(Split("Account.User1.Username"), (names{"Account", "User1", "Username"}));
    EXPECT_EQ(Split("Account..User1.."), (names{"Account", "User1"}));
    EXPECT_EQ(Split("...Account"), (names{"Account"}));
    EXPECT_EQ(Split("Account"), (names{"Account"}));
}

TEST(Path, WithoutAnyComponentDoesNotSplit) {
    EXPECT_EQ(Split(""), names{});
    EXPECT_EQ(Split("."), names{});
    EXPECT_EQ(Split("....."), names{});
    EXPECT_EQ(Split(std::string_view("\0Account", 8)), names{});
}

TEST(Path, ComponentsAreEscapeCoded) {
    EXPECT_EQ(Split("a b_c.*.-"), (names{"a_20b_5Fc", "*", "-"}));
    EXPECT_EQ(Split("Account.#"), (names{"Account", "_23"}));
}

TEST(Path, EndsAtANul) {
    EXPECT_EQ(Split(std::string_view("a.b\0c.d", 7)), (names{"a", "b"}));
}

TEST(Path, LongerTextIsCutToItsFirst511Bytes) {
    EXPECT_EQ(Split(std::string(600, 'a')), names{std::string(511, 'a')});
    EXPECT_EQ(Split(std::string(510, 'a') + ".bc"), names{std::string(510, 'a')});
    EXPECT_EQ(Split(std::string(509, 'a') + ".bc"), (names{std::string(509, 'a'), "b"}));
}

TEST(Path, AnEncodedComponentIsCutAt511BytesAtAWholeEscape) {
    std::string text(500, ' ');
    EXPECT_EQ(Split(text)[0].size(), 510U);
    text[0] = 'a';
    EXPECT_EQ(Split(text)[0].size(), 511U);
    text[1] = 'b';
    EXPECT_EQ(Split(text)[0].size(), 509U);
}

TEST(Path, HoldsAsManyComponentsAsTextCanHave) {
    std::string most;
    for (int i = 0; i < 400; ++i) {
        most += " .";
    }
    const names split = Split(most);
    ASSERT_EQ(split.size(), 256U);
    EXPECT_EQ(split.back(), "_20");
    EXPECT_EQ(Split(std::string(255, ' ') + "." + std::string(255, ' ')).size(), 2U);
}

TEST(Path, SplittingAgainForgetsTheOldComponents) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath("a.b.c", list));
    EXPECT_TRUE(SplitXmlPath("d", list));
    EXPECT_EQ(Names(list), names{"d"});
    EXPECT_FALSE(SplitXmlPath("..", list));
    EXPECT_TRUE(list.empty());
}

TEST(Path, WildcardIsAWholeLastComponentOnly) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath("Account.*", list));
    EXPECT_TRUE(IsXmlPathWildcard(list));
    for (const char* const other : {"Account.a*", "*.Account", "Account.**", "Account"}) {
        EXPECT_TRUE(SplitXmlPath(other, list));
        EXPECT_FALSE(IsXmlPathWildcard(list)) << other;
    }
    EXPECT_FALSE(IsXmlPathWildcard(XmlPath()));
}

TEST(Path, StripsALastWildcard) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath("Account.*.*", list));
    StripXmlPathWildcard(list);
    EXPECT_EQ(Names(list), (names{"Account", "*"}));
    StripXmlPathWildcard(list);
    EXPECT_EQ(Names(list), (names{"Account"}));
    StripXmlPathWildcard(list);
    EXPECT_EQ(Names(list), (names{"Account"}));
    EXPECT_TRUE(SplitXmlPath("*", list));
    StripXmlPathWildcard(list);
    EXPECT_EQ(Names(list), (names{""}));
}

TEST(Path, DropsItsTailButNeverItsOnlyComponent) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath("a.b.c", list));
    DropXmlPathTail(list);
    EXPECT_EQ(Names(list), (names{"a", "b"}));
    DropXmlPathTail(list);
    DropXmlPathTail(list);
    EXPECT_EQ(Names(list), (names{"a"}));
}

TEST(Path, JoinsBehindWhatTheBufferHolds) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath("a b.c", list));
    EXPECT_EQ(Join(list), "a_20b.c");
    EXPECT_EQ(Join(list, "x:"), "x:a_20b.c");
    EXPECT_EQ(Join(list, "", 4), "a_2");
    EXPECT_EQ(Join(list, "", 7), "a_20b.");
    EXPECT_EQ(Join(list, "", 1), "");
    EXPECT_EQ(Join(XmlPath(), "x"), "x");
}

TEST(Path, NamesItsLastTwoComponents) {
    XmlPath list;
    EXPECT_EQ(XmlPathLast(list).data(), nullptr);
    EXPECT_EQ(XmlPathParent(list).data(), nullptr);
    EXPECT_TRUE(SplitXmlPath("a", list));
    EXPECT_EQ(XmlPathLast(list), "a");
    EXPECT_EQ(XmlPathParent(list).data(), nullptr);
    EXPECT_TRUE(SplitXmlPath("a.b.c", list));
    EXPECT_EQ(XmlPathLast(list), "c");
    EXPECT_EQ(XmlPathParent(list), "b");
}

TEST(Path, AnyTextAtAllStaysWithinTheBounds) {
    std::mt19937 random(5);
    for (int round = 0; round < 5000; ++round) {
        std::string text(random() % 700, '\0');
        for (char& c : text) {
            c = random() % 4 == 0 ? '.' : static_cast<char>(random());
        }
        XmlPath list;
        if (SplitXmlPath(text, list)) {
            EXPECT_LT(Join(list, "", 64).size(), 64U);
            for (const std::string& name : Names(list)) {
                EXPECT_FALSE(name.empty());
                EXPECT_LE(name.size(), 511U);
            }
        }
    }
}

}  // namespace
}  // namespace veltrancord
