#include "xml/nesting.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace veltrancord {
namespace {

std::string Repeat(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

std::string Nested(int depth) {
    return Repeat("<a>", depth) + Repeat("</a>", depth);
}

bool Deeper(std::string text, int limit) {
    text.append(xml_text_padding, '\0');
    return NestsDeeper(text.c_str(), limit);
}

// The smallest limit that the text keeps to.
int Depth(const std::string& text) {
    int limit = 0;
    while (Deeper(text, limit)) {
        ++limit;
    }
    return limit;
}

int DepthOf(const TiXmlNode& node) {
    int deepest = 0;
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        deepest = std::max(deepest, DepthOf(*child));
    }
    return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

TEST(Nesting, CountsElementsWithinElements) {
    EXPECT_EQ(Depth(""), 0);
    EXPECT_EQ(Depth("<a/>"), 1);
    EXPECT_EQ(Depth("<a></a>"), 1);
    EXPECT_EQ(Depth("<a><b/><c/><d></d></a>"), 2);
    EXPECT_EQ(Depth("<a/><b><c/></b>"), 2);
    EXPECT_EQ(Depth("text"), 0);
    EXPECT_EQ(Depth("<a>x<b>y</b>z<c>u<d>v</d></c></a>"), 3);
}

TEST(Nesting, TheLimitItselfIsAllowed) {
    EXPECT_FALSE(Deeper(Nested(512), 512));
    EXPECT_TRUE(Deeper(Nested(513), 512));
    EXPECT_FALSE(Deeper(Repeat("<a>", 512), 512));
    EXPECT_TRUE(Deeper(Repeat("<a>", 513), 512));
    EXPECT_TRUE(Deeper(Repeat("<a>", 512) + "<b/>", 512));
}

// Many elements make a closer look necessary, and no more.
TEST(Nesting, MoreElementsThanMayBeNestedAreNoFault) {
    EXPECT_FALSE(Deeper("<r>" + Repeat("<a/>", 2000) + "</r>", 512));
    EXPECT_FALSE(Deeper("<r>" + Repeat("<a><b>x</b></a>", 2000) + "</r>", 3));
    EXPECT_FALSE(Deeper("<r>" + Repeat("<!-- <a> -->", 2000) + "</r>", 1));
    EXPECT_TRUE(Deeper("<r>" + Repeat("<a/>", 2000) + Nested(512) + "</r>", 512));
}

TEST(Nesting, MarkupInsideOtherThingsDoesNotCount) {
    EXPECT_EQ(Depth("<a x=\"<b><c>\" y='<d>'/>"), 1);
    EXPECT_EQ(Depth("<a><!-- <b><c></a> --></a>"), 1);
    EXPECT_EQ(Depth("<a><![CDATA[<b><c></a>]]></a>"), 1);
    EXPECT_EQ(Depth("<?xml version=\"<a><b>\"?><a/>"), 1);
    EXPECT_EQ(Depth("<a><?pi <b ?></a>"), 1);
    EXPECT_EQ(Depth("<!DOCTYPE a><a/>"), 1);
    EXPECT_EQ(Depth("<a x=y/>"), 1);
}

TEST(Nesting, TextEndsWhereTheParserGivesUp) {
    EXPECT_EQ(Depth("<a x><b>"), 1);
    EXPECT_EQ(Depth("<a x=\"<b><c>"), 1);
    EXPECT_EQ(Depth("<a><!-- <b>"), 1);
    EXPECT_EQ(Depth("text<a>"), 0);
}

// Text that hides its end tags from a reader which takes other bounds than the parser does: in
// UTF-8 text a leading byte swallows the "<" behind it.
TEST(Nesting, HiddenEndTagsDoNotHideTheDepth) {
    EXPECT_GE(Depth("<?xml?>" + Repeat("<a>\xC3</a>", 40)), 40);
    EXPECT_GE(Depth("\xEF\xBB\xBF" + Repeat("<a>\xE2</a>", 40)), 40);
    EXPECT_GE(Depth(Repeat("<a><?xml version='></a>'?>", 40)), 40);
    EXPECT_GE(Depth(Repeat("<a><b x='></b></a>'/>", 40)), 40);
    EXPECT_GE(Depth("<?xml encoding='&#85;TF-8'?>" + Repeat("<a>\xC3</a>", 40)), 40);
    EXPECT_GE(Depth(Repeat("<a>&#</a>&#1;", 40)), 40);
    EXPECT_EQ(Depth("<?xml encoding='latin1'?><r>" + Repeat("<a>\xC3</a>", 40) + "</r>"), 2);
}

std::string AnyMarkup(std::mt19937& random) {
    static constexpr std::string_view pieces[] = {"<a>",
                                                  "<a>",
                                                  "<a>",
                                                  "<b>",
                                                  "</a>",
                                                  "</a>",
                                                  "</b>",
                                                  "<a/>",
                                                  "<a x='",
                                                  "'",
                                                  "\"",
                                                  "<b y=\"",
                                                  ">",
                                                  "/>",
                                                  "<",
                                                  "</",
                                                  "/",
                                                  "=",
                                                  " ",
                                                  "\n",
                                                  "text",
                                                  "<!--",
                                                  "-->",
                                                  "<![CDATA[",
                                                  "]]>",
                                                  "<!x",
                                                  "<?xml",
                                                  "<?xml version=\"1\"?>",
                                                  "<?XML encoding='UTF-8'?>",
                                                  "<?xml encoding='x'?>",
                                                  "?>",
                                                  "\xC3",
                                                  "\xE2",
                                                  "\xF0",
                                                  "\xFF",
                                                  "\xEF\xBB\xBF",
                                                  "\xEF\xBF\xBE",
                                                  "&",
                                                  "&#",
                                                  "&#x41;",
                                                  "&#65;",
                                                  "&lt;",
                                                  ";",
                                                  "<_",
                                                  "<\xC3\xA4>",
                                                  "</\xC3\xA4>",
                                                  "-",
                                                  ".",
                                                  ":",
                                                  "encoding='UTF-8'",
                                                  "standalone=",
                                                  "\x7F",
                                                  "\x01"};
    std::string text;
    for (std::size_t i = random() % 40; i > 0; --i) {
        text += pieces[random() % std::size(pieces)];
    }
    return text;
}

// Whatever the text: what is measured is never less than what the library builds, and the same
// where the library finds no fault.
TEST(Nesting, AgreesWithTheLibraryOnAnyText) {
    std::mt19937 random(1);
    int sound = 0;
    for (int round = 0; round < 100000; ++round) {
        const std::string text = AnyMarkup(random);
        TiXmlDocument document;
        document.SetTabSize(0);
        document.Parse((text + std::string(xml_text_padding, '\0')).c_str());
        const int built = DepthOf(document);
        const int measured = Depth(text);
        ASSERT_GE(measured, built) << testing::PrintToString(text);
        if (!document.Error()) {
            ++sound;
            ASSERT_EQ(measured, built) << testing::PrintToString(text);
        }
    }
    EXPECT_GT(sound, 1000);
}

}  // namespace
}  // namespace veltrancord
