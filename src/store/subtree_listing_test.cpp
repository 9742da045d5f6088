#include "store/subtree_listing.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "store/change.h"
#include "store/path.h"
#include "store/value.h"
#include "xml/document.h"

namespace veltrancord {
namespace {

constexpr std::array<std::string_view, 1> filter = {"A.Hidden"};
constexpr HiddenPrefixes no_filter;

struct listing {
    int32_t result = 0;
    std::string text;
};

listing List(const TiXmlNode& top, std::string_view prefix, HiddenPrefixes hidden = no_filter,
             uint32_t capacity = 100000) {
    reply_text out;
    EXPECT_TRUE(out.open(capacity + 512));
    listing listed;
    listed.result = ListXmlSubtree(top, out, capacity, prefix, hidden);
    listed.text = out.view();
    return listed;
}

// Lists what is below the root of the text, whose name is the prefix.
std::string Lines(const char* xml, HiddenPrefixes hidden = no_filter) {
    XmlDocument document("D");
    EXPECT_TRUE(document.LoadXMLFile(xml));
    const listing listed = List(*document.RootElement(), document.RootElement()->Value(), hidden);
    EXPECT_EQ(listed.result, 0);
    return listed.text;
}

TEST(SubtreeListing, ListsEachElementWithTextUnderItsFullKey) {
    EXPECT_EQ(Lines("<A><B>1</B><C><D>2</D></C></A>"), "A.B=1\nA.C.D=2\n");
    EXPECT_EQ(Lines("<A/>"), "");
    EXPECT_EQ(Lines("<A>own text</A>"), "");
}

TEST(SubtreeListing, WholeDocumentIsListedWithTheRootAsFirstComponent) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<?xml version='1.0'?><A>0<B>1</B></A>"));
    EXPECT_EQ(List(document, "").text, "A.B=1\nA=0\n");
}

TEST(SubtreeListing, LineOfAnElementFollowsThoseOfItsDescendants) {
    EXPECT_EQ(Lines("<A><B>b<C>c<D>d</D></C></B><E>e</E></A>"),
              "A.B.C.D=d\nA.B.C=c\nA.B=b\nA.E=e\n");
}

TEST(SubtreeListing, ElementsWithoutTextAndAttributesMakeNoLine) {
    EXPECT_EQ(Lines("<A><B x='1'/><C><!--c-->late</C><D></D></A>"), "");
}

TEST(SubtreeListing, NamesAreDecodedAndThePrefixIsNot) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A_20B><C_20D><E_5F>1</E_5F></C_20D></A_20B>"));
    EXPECT_EQ(List(*document.RootElement(), "A_20B").text, "A_20B.C D.E_=1\n");
    EXPECT_EQ(List(document, "").text, "A B.C D.E_=1\n");
}

TEST(SubtreeListing, NamesOfAnyLengthAreDecodedWhereverAnEscapeStands) {
    for (std::size_t length = 1; length <= 40; ++length) {
        const std::string plain =
            std::string("NabcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQ", length);
        EXPECT_EQ(Lines(("<A><" + plain + ">1</" + plain + "></A>").c_str()),
                  "A." + plain + "=1\n");
        for (std::size_t at = 1; at < length; ++at) {
            const std::string end = plain.substr(at);
            const std::string name = plain.substr(0, at) + "_3D" + end;
            EXPECT_EQ(Lines(("<A><" + name + ">1</" + name + "></A>").c_str()),
                      "A." + plain.substr(0, at) + "=" + end + "=1\n");
        }
    }
}

TEST(SubtreeListing, PlusAndNulInANameAreDecoded) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>1</B><C>2</C><D>3</D></A>"));
    TiXmlElement* const b = document.RootElement()->FirstChildElement();
    b->SetValue("B+longer+than+a+word");
    b->NextSiblingElement()->SetValue(std::string("Cut\0off", 7));
    b->NextSiblingElement()->NextSiblingElement()->SetValue("D+");
    EXPECT_EQ(List(document, "").text, "A.B longer than a word=1\nA.Cut=2\nA.D =3\n");
}

TEST(SubtreeListing, TextEndsAtANul) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>1</B><C>2</C></A>"));
    document.RootElement()->FirstChildElement()->FirstChild()->SetValue(
        std::string("text\0and more of it than fits", 29));
    const listing listed = List(document, "", no_filter, 17);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.text, "A.B=text\nA.C=2\n");
}

TEST(SubtreeListing, PrefixOfAnyLengthStandsBeforeEachLine) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>1</B><Second>2</Second></A>"));
    for (std::size_t length = 1; length <= 248; ++length) {
        std::string prefix;
        while (prefix.size() < length) {
            prefix += static_cast<char>('a' + prefix.size() % 23);
        }
        EXPECT_EQ(List(*document.RootElement(), prefix).text,
                  prefix + ".B=1\n" + prefix + ".Second=2\n");
    }
}

TEST(SubtreeListing, ListingInALargeBlockIsThatInASmallOne) {
    std::string xml = "<A>";
    std::string expected;
    for (int number = 0; number < 40'000; ++number) {
        const std::string name = "E" + std::to_string(number);
        const std::string text(static_cast<std::size_t>(number % 97 + 1), 't');
        xml.append("<").append(name).append(">").append(text).append("</").append(name).append(">");
        expected.append("A.").append(name).append("=").append(text).append("\n");
    }
    xml += "</A>";
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile(xml.c_str()));
    ASSERT_GT(expected.size(), std::size_t{2} << 20);
    const auto size = static_cast<uint32_t>(expected.size());
    EXPECT_EQ(List(document, "", no_filter, size + 1).text, expected);
    // Here the bound is reached by the last lines, which are appended one piece after the other.
    reply_text out;
    ASSERT_TRUE(out.open(expected.size()));
    EXPECT_EQ(ListXmlSubtree(document, out, size + 1, "", no_filter), 0);
    EXPECT_EQ(out.view(), expected);
    ASSERT_TRUE(out.open(expected.size() - 1));
    EXPECT_EQ(ListXmlSubtree(document, out, size + 1, "", no_filter), -1);
}

TEST(SubtreeListing, DecodedNameEndsAtANul) {
    EXPECT_EQ(Lines("<A><B_00C>1</B_00C><D>2</D></A>"), "A.B=1\nA.D=2\n");
}

TEST(SubtreeListing, SecretsAreListedPlain) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A/>"));
    for (const char* const path : {"A.U.Password", "A.U.PASSWORD"}) {
        XmlPath list;
        ASSERT_TRUE(SplitXmlPath(path, list));
        ASSERT_NE(SetXmlValue(document, list, "secret"), nullptr);
    }
    EXPECT_EQ(List(document, "").text, "A.U.Password=secret\nA.U.PASSWORD=secret\n");
    EXPECT_EQ(Lines("<A><Password>plain</Password><x><password>enc:abc</password></x></A>"),
              "A.Password=plain\nA.x.password=\n");
}

TEST(SubtreeListing, KeysAreCutAt255Bytes) {
    const std::string name(200, 'n');
    const std::string tail(100, 't');
    std::string xml = "<A><N><T>1</T></N><E>2</E></A>";
    xml.replace(xml.find("N>"), 1, name).replace(xml.find("/N>") + 1, 1, name);
    xml.replace(xml.find("T>"), 1, tail).replace(xml.find("/T>") + 1, 1, tail);
    std::string key = "A.";
    key.append(name).append(".").append(tail);
    key.resize(255);
    EXPECT_EQ(Lines(xml.c_str()), key + "=1\nA.E=2\n");
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>1</B></A>"));
    EXPECT_EQ(List(*document.RootElement(), std::string(300, 'p')).text,
              std::string(255, 'p') + "=1\n");
    EXPECT_EQ(List(*document.RootElement(), std::string(254, 'p')).text,
              std::string(254, 'p') + ".=1\n");
}

TEST(SubtreeListing, LineFitsByItsValueAndWhatWasListedBefore) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>12345</B><C>123</C></A>"));
    const TiXmlElement& root = *document.RootElement();
    // "A.B=12345\n" is listed when 5 + 0 + 2 fit, "A.C=123\n" when 3 + 10 + 2 do.
    EXPECT_EQ(List(root, "A", no_filter, 15).result, 0);
    EXPECT_EQ(List(root, "A", no_filter, 15).text, "A.B=12345\nA.C=123\n");
    EXPECT_EQ(List(root, "A", no_filter, 14).result, -1);
    EXPECT_EQ(List(root, "A", no_filter, 14).text, "A.B=12345\n");
    EXPECT_EQ(List(root, "A", no_filter, 7).text, "A.B=12345\n");
    EXPECT_EQ(List(root, "A", no_filter, 6).result, -1);
    EXPECT_EQ(List(root, "A", no_filter, 6).text, "");
}

TEST(SubtreeListing, OnlyWhatThisListingWroteCounts) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>12345</B></A>"));
    reply_text out;
    ASSERT_TRUE(out.open(1000));
    ASSERT_TRUE(out.append("earlier lines"));
    EXPECT_EQ(ListXmlSubtree(document, out, 7, "", no_filter), 0);
    EXPECT_EQ(out.view(), "earlier linesA.B=12345\n");
}

TEST(SubtreeListing, LongestKeyFitsTheSlackAboveTheCapacity) {
    XmlDocument document("D");
    std::string xml = "<A><B>12345</B></A>";
    xml.replace(4, 1, std::string(300, 'n')).replace(xml.rfind('B'), 1, std::string(300, 'n'));
    ASSERT_TRUE(document.LoadXMLFile(xml.c_str()));
    const listing listed = List(*document.RootElement(), "A", no_filter, 7);
    EXPECT_EQ(listed.result, 0);
    EXPECT_EQ(listed.text.size(), 255U + 7U);
}

TEST(SubtreeListing, MemoryOrBoundThatGivesOutIsAFailure) {
    XmlDocument document("D");
    ASSERT_TRUE(document.LoadXMLFile("<A><B>12345</B></A>"));
    reply_text out;
    ASSERT_TRUE(out.open(8));
    EXPECT_EQ(ListXmlSubtree(document, out, 100, "", no_filter), -1);
}

TEST(SubtreeListing, FilterHidesByPrefixOfTheKey) {
    EXPECT_EQ(Lines("<A><Hidden>1</Hidden><HiddenToo><X>2</X></HiddenToo><Hid>3</Hid>"
                    "<hidden>4</hidden></A>",
                    filter),
              "A.Hid=3\nA.hidden=4\n");
}

TEST(SubtreeListing, FilterHidesWhatIsNotAllowedToShow) {
    const char* const xml =
        "<A><B AllowToShow='no'>1</B><C AllowToShow='yes'>2</C><D AllowToShow='YES'>3</D>"
        "<E AllowToShow=''>4</E><F allowtoshow='no'>5</F><G AllowToShow='YES '>6</G></A>";
    EXPECT_EQ(Lines(xml, filter), "A.C=2\nA.D=3\nA.F=5\n");
    EXPECT_EQ(Lines(xml), "A.B=1\nA.C=2\nA.D=3\nA.E=4\nA.F=5\nA.G=6\n");
}

TEST(SubtreeListing, HiddenTopElementTakesItsSubtreeAlongAndADeeperOneOnlyItsLine) {
    EXPECT_EQ(Lines("<A><B AllowToShow='NO'><C>1</C></B></A>", filter), "");
    EXPECT_EQ(Lines("<A><B>0<C AllowToShow='NO'>1<D>2</D></C></B></A>", filter),
              "A.B.C.D=2\nA.B=0\n");
}

TEST(SubtreeListing, VisibilityOfOneElement) {
    TiXmlElement element("E");
    EXPECT_EQ(IsXmlNodeVisible("A.Shown", element, filter), true);
    EXPECT_EQ(IsXmlNodeVisible("A.Hidden", element, filter), false);
    EXPECT_EQ(IsXmlNodeVisible("A.HiddenGroup.X", element, filter), false);
    EXPECT_EQ(IsXmlNodeVisible("A.Hidde", element, filter), true);
    EXPECT_EQ(IsXmlNodeVisible("B.A.Hidden", element, filter), true);
    element.SetAttribute("AllowToShow", "NO");
    EXPECT_EQ(IsXmlNodeVisible("A.Shown", element, filter), false);
    element.SetAttribute("AllowToShow", "yEs");
    EXPECT_EQ(IsXmlNodeVisible("A.Shown", element, filter), true);
    EXPECT_EQ(IsXmlNodeVisible("A.Hidden", element, filter), false);
}

}  // namespace
}  // namespace veltrancord
