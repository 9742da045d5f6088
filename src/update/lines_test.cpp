#include "update/lines.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace veltrancord {
namespace {

using pairs = std::vector<std::pair<std::string, std::string>>;

pairs lines_of(std::string_view argument) {
    pairs found;
    update_lines lines(argument);
    update_line line;
    while (lines.next(line)) {
        found.emplace_back(line.path, line.value);
    }
    return found;
}

TEST(UpdateLines, TakesALineWithAndWithoutALineFeed) {
    EXPECT_EQ(lines_of("a.b=1"), (pairs{{"a.b", "1"}}));
    EXPECT_EQ(lines_of("a.b=1\n"), (pairs{{"a.b", "1"}}));
}

TEST(UpdateLines, TakesSeveralLines) {
    EXPECT_EQ(lines_of("a.b=1\nc.d=2\ne=3"), (pairs{{"a.b", "1"}, {"c.d", "2"}, {"e", "3"}}));
}

TEST(UpdateLines, EndsThePathAtTheFirstEqualsSign) {
    EXPECT_EQ(lines_of("a=b=c\nd=="), (pairs{{"a", "b=c"}, {"d", "="}}));
}

TEST(UpdateLines, MakesALineWithoutEqualsSignPartOfTheNextPath) {
    EXPECT_EQ(lines_of("junk\na.b=1"), (pairs{{"junk\na.b", "1"}}));
    EXPECT_EQ(lines_of("a=1\njunk\n\nb=2\n"), (pairs{{"a", "1"}, {"junk\n\nb", "2"}}));
}

TEST(UpdateLines, TakesEmptyPathsAndValues) {
    EXPECT_EQ(lines_of("a.b="), (pairs{{"a.b", ""}}));
    EXPECT_EQ(lines_of("a.b=\nc=1"), (pairs{{"a.b", ""}, {"c", "1"}}));
    EXPECT_EQ(lines_of("=1"), (pairs{{"", "1"}}));
}

TEST(UpdateLines, FindsNothingWithoutAnEqualsSign) {
    EXPECT_TRUE(lines_of("").empty());
    EXPECT_TRUE(lines_of("no sign at all\n").empty());
    EXPECT_EQ(lines_of("a=1\nrest"), (pairs{{"a", "1"}}));
    EXPECT_EQ(lines_of("a=1\n\n"), (pairs{{"a", "1"}}));
}

}  // namespace
}  // namespace veltrancord
