#include "store/subtree_merge.h"

#include <gtest/gtest.h>

#include <string>

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

}  // namespace
}  // namespace veltrancord
