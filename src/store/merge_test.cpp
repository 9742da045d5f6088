#include "store/merge.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <memory>
#include <string>

#include "store/document_set.h"
#include "xml/document.h"

namespace veltrancord {
namespace {

// The merged document, behind what was printed on the way.
std::string merged(const char* into, const std::string& from) {
    XmlDocument document("Doc");
    EXPECT_TRUE(document.LoadXMLFile(into));
    XmlDocument source("source");
    EXPECT_TRUE(source.LoadXMLFile(from.c_str()));
    testing::internal::CaptureStderr();
    const bool all = MergeSubtree(document, *source.RootElement());
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_EQ(all, lines.empty());
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    document.Accept(&printer);
    return lines + printer.Str();
}

TEST(SubtreeMerge, SetsTextsAtTheirOwnPlaces) {
    EXPECT_EQ(merged("<Doc><A><B>1</B><C>2</C></A><B>3</B></Doc>", "<Doc><A><B>9</B></A></Doc>"),
              "<Doc><A><B>9</B><C>2</C></A><B>3</B></Doc>");
}

TEST(SubtreeMerge, CreatesWhatATextNeedsAndNothingElse) {
    EXPECT_EQ(merged("<Doc/>", "<Doc><A><B><C>1</C></B><D/></A><E><F/></E></Doc>"),
              "<Doc><A><B><C>1</C></B></A></Doc>");
}

TEST(SubtreeMerge, CreatesTheRootWhereItIsMissing) {
    EXPECT_EQ(merged("<Other/>", "<Doc><A>1</A></Doc>"), "<Other /><Doc><A>1</A></Doc>");
}

TEST(SubtreeMerge, TakesStoredNamesAsTheyAre) {
    EXPECT_EQ(merged("<Doc><a_20b>1</a_20b></Doc>", "<Doc><a_20b>2</a_20b><c.d>3</c.d></Doc>"),
              "<Doc><a_20b>2</a_20b><c.d>3</c.d></Doc>");
}

TEST(SubtreeMerge, TakesTheFirstElementOfAName) {
    EXPECT_EQ(merged("<Doc><A>1</A><A>2</A></Doc>", "<Doc><A>3</A></Doc>"),
              "<Doc><A>3</A><A>2</A></Doc>");
    EXPECT_EQ(merged("<Doc/>", "<Doc><A>1</A><A>2</A></Doc>"), "<Doc><A>2</A></Doc>");
}

TEST(SubtreeMerge, LeavesAttributesAlone) {
    EXPECT_EQ(
        merged("<Doc><A Level=\"1\">x</A></Doc>", "<Doc><A Level=\"2\" New=\"3\">y</A></Doc>"),
        "<Doc><A Level=\"1\">y</A></Doc>");
}

TEST(SubtreeMerge, KeepsChildrenBesideAText) {
    EXPECT_EQ(merged("<Doc><A>x<B>1</B></A></Doc>", "<Doc><A>y<B>2</B><C>3</C></A></Doc>"),
              "<Doc><A>y<B>2</B><C>3</C></A></Doc>");
}

TEST(SubtreeMerge, PutsATextInThePlaceOfAFirstChildAsAWriteDoes) {
    EXPECT_EQ(merged("<Doc><A><!--note--></A></Doc>", "<Doc><A>y</A></Doc>"),
              "<Doc><A>y</A></Doc>");
    EXPECT_EQ(merged("<Doc><A><![CDATA[x]]></A></Doc>", "<Doc><A>y</A></Doc>"),
              "<Doc><A>y</A></Doc>");
}

TEST(SubtreeMerge, KeepsThePlainValueOfASecret) {
    EXPECT_EQ(merged("<Doc/>", "<Doc><Password>enc:1:AA==</Password></Doc>"),
              "<Doc><Password>enc:1:AA==</Password></Doc>");
    const std::string encoded = merged("<Doc/>", "<Doc><password>open</password></Doc>");
    EXPECT_TRUE(encoded.starts_with("<Doc><password>enc:4:")) << encoded;
    EXPECT_EQ(merged("<Doc/>", encoded), encoded);
}

TEST(SubtreeMerge, LeavesATooLongSecretOut) {
    const std::string from = "<Doc><Password>" + std::string(200, 'x') + "</Password></Doc>";
    EXPECT_EQ(merged("<Doc><Password>old</Password></Doc>", from),
              "syncxml can't store Doc.Password\n<Doc><Password>old</Password></Doc>");
    EXPECT_EQ(merged("<Doc/>", from), "syncxml can't store Doc.Password\n<Doc />");
}

// Its stored form is whole, whatever the plain text ends with.
TEST(SubtreeMerge, JudgesASecretByItsStoredForm) {
    const std::string result =
        merged("<?xml version=\"1.0\"?><Doc/>", "<Doc><Password>caf\xE9</Password></Doc>");
    EXPECT_TRUE(result.starts_with("<?xml version=\"1.0\" ?><Doc><Password>enc:4:")) << result;
}

TEST(SubtreeMerge, IsNotQuadraticInTheNumberOfChildren) {
    // A look at every child for every child would take minutes.
    std::string into = "<Doc>";
    std::string from = "<Doc>";
    for (int i = 0; i < 60000; ++i) {
        into += "<a" + std::to_string(i) + ">0</a" + std::to_string(i) + ">";
        from += "<a" + std::to_string(59999 - i) + ">1</a" + std::to_string(59999 - i) + ">";
    }
    const std::string result = merged((into + "</Doc>").c_str(), from + "</Doc>");
    EXPECT_EQ(result.find(">0<"), std::string::npos);
}

TEST(SubtreeMerge, LeavesOutATextThatWouldTakeInWhatFollowsIt) {
    EXPECT_EQ(merged("<?xml version=\"1.0\"?><Doc><A>1</A><B>2</B></Doc>",
                     "<Doc><A>caf\xE9</A><B>3</B><C><D>caf\xE9</D></C></Doc>"),
              "syncxml can't store Doc.A\nsyncxml can't store Doc.C.D\n"
              "<?xml version=\"1.0\" ?><Doc><A>1</A><B>3</B></Doc>");
}

// Restore's merge

std::string Text(const TiXmlNode& node) {
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    node.Accept(&printer);
    return printer.Str();
}

// What `into` becomes when `from` is merged into it; both are children of the tree that is merged.
std::string Merge(const std::string& into, const std::string& from) {
    XmlDocument target("T");
    XmlDocument source("S");
    EXPECT_TRUE(target.LoadXMLFile(("<R>" + into + "</R>").c_str()));
    EXPECT_TRUE(source.LoadXMLFile(("<R>" + from + "</R>").c_str()));
    EXPECT_EQ(MergeXmlNode(target.RootElement(), source.RootElement()), 0);
    const std::string text = Text(*target.RootElement());
    return text == "<R />" ? "" : text.substr(3, text.size() - 7);
}

TEST(DocumentMerge, TextWinsOverTheTextThatIsThere) {
    EXPECT_EQ(Merge("<A>old</A>", "<A>new</A>"), "<A>new</A>");
    EXPECT_EQ(Merge("<A>old<B/></A>", "<A>new</A>"), "<A>new<B /></A>");
}

TEST(DocumentMerge, TextIsAppendedToAnElementWithoutChildren) {
    EXPECT_EQ(Merge("<A/>", "<A>new</A>"), "<A>new</A>");
}

TEST(DocumentMerge, TextDoesNotReplaceAnElement) {
    EXPECT_EQ(Merge("<A><B>1</B></A>", "<A>new</A>"), "<A><B>1</B></A>");
    EXPECT_EQ(Merge("<A><B>1</B></A>", "<A>new<B>2</B><C>3</C></A>"), "<A><B>2</B><C>3</C></A>");
}

TEST(DocumentMerge, ElementWithoutTextLeavesTheTextThatIsThere) {
    EXPECT_EQ(Merge("<A>old</A>", "<A/>"), "<A>old</A>");
    EXPECT_EQ(Merge("<A>old</A>", "<A><B>1</B></A>"), "<A>old<B>1</B></A>");
}

TEST(DocumentMerge, ElementsOnlyInTheTargetStay) {
    EXPECT_EQ(Merge("<A>1</A><B>2</B>", "<B>3</B>"), "<A>1</A><B>3</B>");
    EXPECT_EQ(Merge("<A><B><C>1</C><D>2</D></B></A>", "<A><B><C>9</C></B></A>"),
              "<A><B><C>9</C><D>2</D></B></A>");
}

TEST(DocumentMerge, MissingElementsAreAppendedInOrder) {
    EXPECT_EQ(Merge("<Z>0</Z>", "<A>1</A><B><C>2</C></B><E/>"),
              "<Z>0</Z><A>1</A><B><C>2</C></B><E />");
}

TEST(DocumentMerge, AttributesTravelOnlyWithANewElementThatHasText) {
    EXPECT_EQ(Merge("", "<A x='1' y=''>t</A>"), "<A x=\"1\" y=\"\">t</A>");
    EXPECT_EQ(Merge("", "<A x='1'><B y='2'>t</B></A>"), "<A><B y=\"2\">t</B></A>");
    EXPECT_EQ(Merge("", "<A x='1'/>"), "<A />");
    EXPECT_EQ(Merge("<A z='0'>old</A>", "<A x='1'>new</A>"), "<A z=\"0\">new</A>");
}

TEST(DocumentMerge, OnlyTheFirstElementOfANameIsMet) {
    EXPECT_EQ(Merge("<A>1</A><A>2</A>", "<A>x</A>"), "<A>x</A><A>2</A>");
    EXPECT_EQ(Merge("", "<A>1</A><A>2</A>"), "<A>2</A>");
    EXPECT_EQ(Merge("<A>0</A>", "<A>1</A><A>2</A>"), "<A>2</A>");
}

TEST(DocumentMerge, NewElementWithTextTakesNothingButTheText) {
    EXPECT_EQ(Merge("", "<A>t<B>1</B></A>"), "<A>t</A>");
}

TEST(DocumentMerge, OtherNodesDoNotCount) {
    EXPECT_EQ(Merge("<!--c--><A>1</A>", "<!--d--><A>2</A>loose"), "<!--c--><A>2</A>");
    EXPECT_EQ(Merge("<A><!--c-->old</A>", "<A>new</A>"), "<A><!--c-->old</A>");
}

TEST(DocumentMerge, NamesAreComparedExactly) {
    EXPECT_EQ(Merge("<a>1</a>", "<A>2</A>"), "<a>1</a><A>2</A>");
}

TEST(DocumentMerge, MissingArgumentsDoNothing) {
    XmlDocument document("D");
    EXPECT_TRUE(document.LoadXMLFile("<A/>"));
    EXPECT_EQ(MergeXmlNode(nullptr, document.RootElement()), 0);
    EXPECT_EQ(MergeXmlNode(document.RootElement(), nullptr), 0);
    EXPECT_EQ(MergeXmlDoc(nullptr, document.RootElement()), 0);
    EXPECT_EQ(Text(document), "<A />");
}

TEST(DocumentMerge, DocumentIsMergedFromItsFirstNodeIfThatIsAnElement) {
    const auto merge = [](const char* text) {
        auto doc = std::make_unique<XmlDocument>("D");
        static_cast<void>(doc->LoadXMLFile(text));
        XmlDocNode* const node = AddXmlDocNode("D", "/d", std::move(doc));
        XmlDocument into("I");
        EXPECT_TRUE(into.LoadXMLFile("<D><A>file</A><B>file</B></D>"));
        EXPECT_EQ(MergeXmlDoc(node, into.RootElement()), 0);
        EXPECT_EQ(MergeXmlDoc(node, nullptr), 0);
        FreeXmlDocs();
        return Text(into);
    };
    EXPECT_EQ(merge("<D><A>loaded</A></D>"), "<D><A>loaded</A><B>file</B></D>");
    EXPECT_EQ(merge("<?xml version='1.0'?><D><A>loaded</A></D>"), "<D><A>file</A><B>file</B></D>");
    EXPECT_EQ(merge("<!--c--><D><A>loaded</A></D>"), "<D><A>file</A><B>file</B></D>");
    EXPECT_EQ(merge(""), "<D><A>file</A><B>file</B></D>");
}

// With a look-up that walks all children for each one, this would take minutes.
TEST(DocumentMerge, ManyChildrenAreMergedInLinearTime) {
    std::string from;
    for (int i = 0; i < 100000; ++i) {
        const std::string number = std::to_string(i);
        from.append("<E").append(number).append(">1</E").append(number).append(">");
    }
    EXPECT_EQ(Merge("", from), from);
}

}  // namespace
}  // namespace veltrancord
