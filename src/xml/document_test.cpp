#include "xml/document.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "xml/text.h"

namespace veltrancord {
namespace {

std::string Nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) {
        text += "<a>";
    }
    for (int i = 0; i < depth; ++i) {
        text += "</a>";
    }
    return text;
}

TEST(XmlDocument, LoadsTextInPlaceOfWhatItHeldAndKeepsItsName) {
    XmlDocument document("Account");
    EXPECT_TRUE(document.LoadXMLFile("<A><B>1</B></A>"));
    EXPECT_TRUE(document.LoadXMLFile("<C/>"));
    EXPECT_STREQ(document.Value(), "Account");
    EXPECT_STREQ(document.RootElement()->Value(), "C");
    EXPECT_EQ(document.RootElement()->NextSibling(), nullptr);
}

TEST(XmlDocument, EmptyTextIsAnErrorAndEmptiesTheDocument) {
    XmlDocument document("A");
    EXPECT_TRUE(document.LoadXMLFile("<A/>"));
    EXPECT_FALSE(document.LoadXMLFile(""));
    EXPECT_EQ(document.ErrorId(), TiXmlBase::TIXML_ERROR_DOCUMENT_EMPTY);
    EXPECT_TRUE(document.NoChildren());
    EXPECT_TRUE(document.LoadXMLFile("<A/>"));
    EXPECT_FALSE(document.Error());
}

TEST(XmlDocument, LineEndsCountAsOneLineFeed) {
    const auto load = [](const char* text) {
        XmlDocument document("A");
        EXPECT_TRUE(document.LoadXMLFile(text));
        return SerialiseXmlDoc(document);
    };
    const std::string expected =
        load("<A>\n<B>one\n\ntwo</B>\n<C><![CDATA[a\nb\n\nc]]></C><D x='1\n2'/>\n</A>\n");
    EXPECT_EQ(load("<A>\r\n<B>one\r\n\r\ntwo</B>\r\n<C><![CDATA[a\r\nb\r\n\r\nc]]></C>"
                   "<D x='1\r\n2'/>\r\n</A>\r\n"),
              expected);
    EXPECT_EQ(load("<A>\r<B>one\r\rtwo</B>\r<C><![CDATA[a\rb\r\rc]]></C><D x='1\r2'/>\r</A>\r"),
              expected);
    EXPECT_NE(expected.find("<![CDATA[a\nb\n\nc]]>"), std::string::npos);
}

TEST(XmlDocument, TextThatDoesNotParseLeavesWhatCameBefore) {
    XmlDocument document("A");
    EXPECT_FALSE(document.LoadXMLFile("<A><B>1</B><C>2</D></A>"));
    EXPECT_TRUE(document.Error());
    EXPECT_STREQ(document.RootElement()->FirstChildElement("B")->GetText(), "1");
    EXPECT_FALSE(document.LoadXMLFile("no markup"));
    EXPECT_TRUE(document.NoChildren());
}

TEST(XmlDocument, TextNestedTooDeepDoesNotParseAtAll) {
    XmlDocument document("A");
    EXPECT_TRUE(document.LoadXMLFile(Nested(512)));
    EXPECT_FALSE(document.LoadXMLFile(Nested(513)));
    EXPECT_TRUE(document.Error());
    EXPECT_TRUE(document.NoChildren());
    EXPECT_FALSE(document.LoadXMLFile(Nested(200000)));
    EXPECT_TRUE(document.NoChildren());
    std::string spaced;
    for (int i = 0; i < 1000; ++i) {
        spaced += "<c ></c >";
    }
    EXPECT_TRUE(document.LoadXMLFile("<A >" + spaced + "</A\n>"));
    EXPECT_FALSE(document.LoadXMLFile("<A><c></c >" + Nested(512) + "</A>"));
    EXPECT_TRUE(document.NoChildren());
    EXPECT_TRUE(document.LoadXMLFile("<A/>"));
}

// What tells that a file holds more than the document does, and where that begins.
TEST(XmlDocument, TellsTheLineOfADamage) {
    const auto line = [](std::string text) {
        XmlDocument document("A");
        static_cast<void>(document.LoadXMLFile(std::move(text)));
        return document.DamagedLine();
    };
    for (const std::string_view whole :
         {"", " ", "\n\t \r\n", "\xEF\xBB\xBF", "<A/>", "<A>\n</A >\n\n", "<A/><B/>", "<!-- c -->",
          "<?xml version='1.0'?>"}) {
        EXPECT_EQ(line(std::string(whole)), 0U) << whole;
    }
    EXPECT_EQ(line("no markup"), 1U);
    EXPECT_EQ(line("<A/>\n\nmore"), 3U);
    EXPECT_EQ(line("<A>\n<B>1</B>\n<C>2</D>\n</A>"), 3U);
    EXPECT_EQ(line("<A>\r\n<B>1</B>\r\n<C x=1 x=2/></A>"), 3U);
    EXPECT_EQ(line("<A>\n<B>1</B>\n<C>2"), 3U);
    EXPECT_EQ(line("<A>\n<B>1</B>\n"), 3U);
    EXPECT_EQ(line("<?xml version=1'?>\n<A/>"), 1U);  // no fault to the library
    EXPECT_EQ(line("\n" + Nested(512)), 0U);
    EXPECT_EQ(line("\n" + Nested(513)), 2U);
    using namespace std::string_literals;
    EXPECT_EQ(line("<A>\n<B\0>1</B></A>"s), 2U);
    EXPECT_EQ(line("<A/>\n\0<B/>"s), 2U);
    EXPECT_EQ(line("<A/>\0\0"s), 1U);
    EXPECT_EQ(line("\0\0"s), 1U);
    EXPECT_EQ(line("<A/>\0 \n"s), 0U);
}

TEST(XmlDocument, ADamageIsForgottenWithTheTextThatHadIt) {
    XmlDocument document("A");
    EXPECT_FALSE(document.LoadXMLFile(Nested(513)));
    EXPECT_TRUE(document.NestsTooDeep());
    EXPECT_TRUE(document.LoadXMLFile("<A/>"));
    EXPECT_FALSE(document.NestsTooDeep());
    EXPECT_EQ(document.DamagedLine(), 0U);
}

// A saved value comes back so at the next start.
TEST(XmlDocument, BlanksOfATextAreCondensed) {
    XmlDocument document("A");
    EXPECT_TRUE(document.LoadXMLFile("<A><B>  a \t b  </B><C>  </C></A>"));
    EXPECT_STREQ(document.RootElement()->FirstChildElement("B")->GetText(), "a b");
    EXPECT_TRUE(document.RootElement()->FirstChildElement("C")->NoChildren());
}

TEST(XmlDocument, ByteOrderMarkIsRemembered) {
    XmlDocument document("A");
    EXPECT_FALSE(document.HasByteOrderMark());
    EXPECT_TRUE(document.LoadXMLFile("\xEF\xBB\xBF<A/>"));
    EXPECT_TRUE(document.HasByteOrderMark());
}

// The last byte announces a longer character than there is: the library steps over the end.
TEST(XmlDocument, TextEndingWithinACharacterIsReadWithinItsBounds) {
    for (const char* const text : {"<?xml?><a>\xF0",
                                   "<?xml?><a>\xE2",
                                   "<?xml?><a b='\xF0",
                                   "\xEF\xBB\xBF<a>\xC3",
                                   "<a b='",
                                   "<a><!--",
                                   "<a><![CDATA[",
                                   "<?xml ",
                                   "<?xml version",
                                   "<?xml version='",
                                   "<",
                                   "<a",
                                   "<a ",
                                   "<a/",
                                   "<a>&",
                                   "<a>&#",
                                   "<a>&#x",
                                   "<!",
                                   "</",
                                   "\xEF\xBB\xBF",
                                   "<a></"}) {
        XmlDocument document("A");
        const bool loaded = document.LoadXMLFile(text);
        EXPECT_EQ(loaded, !document.Error()) << text;
        // An element without its end is a fault; the library lets the other cases pass.
        EXPECT_EQ(loaded,
                  std::string_view(text).find("<a") == std::string_view::npos && text[0] == '<')
            << text;
    }
}

}  // namespace
}  // namespace veltrancord
