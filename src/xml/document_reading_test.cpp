// Reading text into a document: against the library's own parser.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "support/markup_pieces.h"
#include "support/rounds.h"
#include "support/same_xml.h"
#include "xml/document.h"

namespace veltrancord {
namespace {

std::string Repeat(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

// Return: whether the library finds no fault in the text.
bool ExpectTheLibrarysDocument(const std::string& text) {
    TiXmlDocument expected;
    expected.SetTabSize(0);
    expected.Parse((text + std::string(4, '\0')).c_str());
    XmlDocument document("");
    const bool loaded = document.LoadXMLFile(text);
    if (xml_depth(expected) > max_xml_nesting) {
        EXPECT_FALSE(loaded) << testing::PrintToString(text);
        EXPECT_TRUE(document.NestsTooDeep()) << testing::PrintToString(text);
        EXPECT_TRUE(document.NoChildren()) << testing::PrintToString(text);
    } else {
        EXPECT_EQ(loaded, !expected.Error()) << testing::PrintToString(text);
        EXPECT_FALSE(document.NestsTooDeep()) << testing::PrintToString(text);
        EXPECT_TRUE(same_xml(document, expected)) << testing::PrintToString(text);
    }
    return !expected.Error();
}

// Text that hides its end tags from a reader which takes other bounds than the parser does: in
// UTF-8 text a leading byte swallows the "<" behind it.
TEST(XmlDocumentReading, HiddenEndTagsDoNotHideTheDepth) {
    for (const int count : {40, 256, 257, 512, 513, 600}) {
        ExpectTheLibrarysDocument("<?xml?>" + Repeat("<a>\xC3</a>", count));
        ExpectTheLibrarysDocument("\xEF\xBB\xBF" + Repeat("<a>\xE2</a>", count));
        ExpectTheLibrarysDocument(Repeat("<a><?xml version='></a>'?>", count));
        ExpectTheLibrarysDocument(Repeat("<a><b x='></b></a>'/>", count));
        ExpectTheLibrarysDocument("<?xml encoding='&#85;TF-8'?>" + Repeat("<a>\xC3</a>", count));
        ExpectTheLibrarysDocument(Repeat("<a>&#</a>&#1;", count));
        ExpectTheLibrarysDocument("<?xml encoding='latin1'?><r>" + Repeat("<a>\xC3</a>", count) +
                                  "</r>");
        ExpectTheLibrarysDocument(Repeat("<a>", count) + Repeat("</a >", count));
        ExpectTheLibrarysDocument("<a>" + Repeat("<b></b\t>", count) + Repeat("<c>", count) +
                                  Repeat("</c>", count) + "</a>");
    }
}

std::string AnyMarkup(std::mt19937& random) {
    std::string text;
    for (std::size_t i = random() % 40; i > 0; --i) {
        text += markup_pieces[random() % std::size(markup_pieces)];
    }
    return text;
}

// Whatever the text: the document is the library's, and so is the answer whether there is a fault.
TEST(XmlDocumentReading, AgreesWithTheLibraryOnAnyText) {
    std::mt19937 random(1);
    int sound = 0;
    const int last = rounds(100000);
    for (int round = 0; round < last && !testing::Test::HasFailure(); ++round) {
        std::string text = AnyMarkup(random);
        if (round % 100 == 0) {
            text = Repeat("<a>", 505) + text + Repeat("</a>", static_cast<int>(random() % 505));
        }
        sound += ExpectTheLibrarysDocument(text) ? 1 : 0;
    }
    EXPECT_GT(sound, 1000);
}

}  // namespace
}  // namespace veltrancord
