#include "schema/pattern.h"

#include <gtest/gtest.h>

#include <clocale>

namespace veltrancord::schema {
namespace {

std::string problem_of(std::string_view text) {
    pattern made;
    std::string problem;
    return made.assign(text, problem) && made.compile(problem) ? "" : problem;
}

testing::AssertionResult matches(std::string_view text, const std::string& value) {
    pattern made;
    std::string problem;
    if (!made.assign(text, problem) || !made.compile(problem)) {
        return testing::AssertionFailure() << text << " " << problem;
    }
    return made.matches(value) ? testing::AssertionSuccess()
                               : testing::AssertionFailure() << made.expression();
}

TEST(Pattern, MatchesAWholeText) {
    EXPECT_TRUE(matches("a|bc", "bc"));
    EXPECT_FALSE(matches("a|bc", "abc"));
    EXPECT_FALSE(matches("a|bc", "bcd"));
    EXPECT_TRUE(matches("", ""));
    EXPECT_FALSE(matches("", "a"));
    EXPECT_TRUE(matches("[0-9]{1,3}(\\.[0-9]{1,3}){3}", "192.0.2.40"));
    EXPECT_FALSE(matches("[0-9]{1,3}(\\.[0-9]{1,3}){3}", "192x0x2x40"));
}

TEST(Pattern, TakesAnchorsOfPosixForCharacters) {
    EXPECT_TRUE(matches("^a$", "^a$"));
    EXPECT_FALSE(matches("^a$", "a"));
    EXPECT_TRUE(matches("[$^]+", "^$"));
    EXPECT_TRUE(matches("\\^*", "^^^"));
}

TEST(Pattern, TellsCharactersFromBytes) {
    EXPECT_TRUE(matches(".", "\xC3\xA4"));
    EXPECT_FALSE(matches("..", "\xC3\xA4"));
    EXPECT_TRUE(matches(".{3}", "\xE2\x82\xAC\xF0\x9F\x98\x80z"));
    EXPECT_TRUE(matches("[\xC3\xA4-\xC3\xBC]+", "\xC3\xB6\xC3\xA4\xC3\xBC"));
    EXPECT_FALSE(matches("[\xC3\xA4-\xC3\xBC]", "\xC3\xA3"));
    EXPECT_TRUE(matches("[^a]", "\xC3\xA4"));
    EXPECT_FALSE(matches("[^\xC3\xA4]", "\xC3\xA4"));
    EXPECT_TRUE(matches("[\xC2\x80-\xF4\x8F\xBF\xBF]", "\xF0\x90\x80\x80"));
    EXPECT_TRUE(matches("\xC3\xA4?", ""));  // the whole character is optional
}

TEST(Pattern, DoesNotDependOnTheLanguageOfTheTerminal) {
    pattern made;
    std::string problem;
    ASSERT_TRUE(made.assign("[\xC3\xA4-\xC3\xBC].", problem));
    const std::string former = setlocale(LC_ALL, nullptr);
    if (setlocale(LC_ALL, "C.UTF-8") != nullptr) {
        EXPECT_TRUE(made.matches("\xC3\xB6\xE2\x82\xAC"));
        EXPECT_FALSE(made.matches("\xC3\xB6"));
    }
    setlocale(LC_ALL, former.c_str());
}

TEST(Pattern, ReadsClasses) {
    EXPECT_TRUE(matches("[]a]", "a") == false);  // an empty class, which is refused
    EXPECT_TRUE(matches("[\\]\\[\\-\\\\a^]+", "][-\\a^"));
    EXPECT_TRUE(matches("[a-]+", "-a"));
    EXPECT_TRUE(matches("[-a]+", "-a"));
    EXPECT_TRUE(matches("[\\d.]+", "1.5"));
    EXPECT_FALSE(matches("[^\\d]", "5"));
    EXPECT_TRUE(matches("[a-z-[aeiou]]+", "xyz"));
    EXPECT_FALSE(matches("[a-z-[aeiou]]+", "xaz"));
    EXPECT_TRUE(matches("[^a-z-[A]]", "B"));
    EXPECT_FALSE(matches("[^a-z-[A]]", "A"));
    EXPECT_TRUE(matches("[\\^]", "^"));
    EXPECT_TRUE(matches("[\\^\\-]", "-"));
    EXPECT_TRUE(matches("[*-.]+", "*+,-."));
}

TEST(Pattern, ReadsEscapes) {
    EXPECT_TRUE(matches("\\d\\D\\s\\S\\w\\W", "1a\tx9 "));
    EXPECT_FALSE(matches("\\w", "_"));  // punctuation to XML Schema
    EXPECT_TRUE(matches("\\w+", "a\xC3\xA4$"));
    EXPECT_TRUE(matches("\\n\\r\\t\\.\\\\\\|\\(\\)\\{\\}\\?\\*\\+\\-", "\n\r\t.\\|(){}?*+-"));
    EXPECT_FALSE(matches(".", "\n"));
}

TEST(Pattern, ReadsRepeats) {
    EXPECT_TRUE(matches("a{2}", "aa"));
    EXPECT_FALSE(matches("a{2}", "aaa"));
    EXPECT_TRUE(matches("a{2,}b?c*d+", "aaad"));
    EXPECT_TRUE(matches("(ab){0,2}", "abab"));
    EXPECT_FALSE(matches("(ab){0,2}", "ababab"));
    EXPECT_TRUE(matches(".{0,255}", std::string(255, 'x')));
    EXPECT_FALSE(matches(".{0,255}", std::string(256, 'x')));
}

TEST(Pattern, SaysWhatItCannotSay) {
    for (const char* text : {"\\p{L}",    "\\i\\c*",
                             "a**",       "a{2}{3}",
                             "*a",        "a{x}",
                             "a{2",       "a{3,2}",
                             "a{256}",    "(a",
                             "a)",        "[a",
                             "[]",        "[z-a]",
                             "[a-\\d]",   "[\\d-z]",
                             "a||b",      "()",
                             "\\",        "\\q",
                             "]",         "{",
                             "[a-c-e]",   "[a[b]]",
                             "[^\\s\\S]", "((((.{255}){255}){255}){255})"}) {
        EXPECT_NE(problem_of(text), "") << text;
    }
    EXPECT_NE(problem_of("\\p{L}").find("write the characters"), std::string::npos);
    EXPECT_NE(problem_of(std::string(5000, '(')), "");
    EXPECT_NE(problem_of(std::string(5000, '[')), "");
}

TEST(Pattern, IsNotCutAtANulByte) {
    EXPECT_FALSE(matches("a", std::string("a\0b", 3)));
}

TEST(Pattern, SharesWhatIsCompiledWithItsCopies) {
    pattern made;
    std::string problem;
    ASSERT_TRUE(made.assign("[0-9]+", problem));
    const pattern copy = made;
    EXPECT_TRUE(copy.matches("12"));
    EXPECT_TRUE(made.matches("12"));
    EXPECT_EQ(copy.text(), "[0-9]+");
}

}  // namespace
}  // namespace veltrancord::schema
