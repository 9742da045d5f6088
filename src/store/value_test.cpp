#include "store/value.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "store/document_set.h"

namespace veltrancord {
namespace {

class Value : public testing::Test {
  protected:
    ~Value() override { FreeXmlDocs(); }

    static XmlDocument& Load(const char* name, const char* text) {
        auto doc = std::make_unique<XmlDocument>(name);
        EXPECT_TRUE(doc->LoadXMLFile(text));
        return *AddXmlDocNode(name, "", std::move(doc))->doc;
    }

    // The text found at the path, or "-" and the result where there is none.
    static std::string Read(std::string_view path) {
        XmlValue out;
        const int32_t result = ReadXmlValue(path, out);
        return result < 0 ? "-" + std::to_string(-result) : std::string(out.text);
    }

    static TiXmlElement* Find(XmlDocument& doc, std::string_view path) {
        XmlPath list;
        EXPECT_TRUE(SplitXmlPath(path, list));
        return FindXmlElement(doc.RootElement(), list);
    }
};

TEST_F(Value, FindsElementsByTheirStoredNames) {
    XmlDocument& doc = Load("A", "<A><a_20b_5Fc>x</a_20b_5Fc><B>y</B><b>z</b></A>");
    EXPECT_EQ(Read("A.a b_c"), "x");
    EXPECT_EQ(Read("A.a_20b_5Fc"), "-4");
    EXPECT_EQ(Read("A.B"), "y");
    EXPECT_EQ(Read("A.b"), "z");
    EXPECT_EQ(Find(doc, "A"), doc.RootElement());
    EXPECT_EQ(Find(doc, "B"), nullptr);
    EXPECT_EQ(FindXmlElement(nullptr, XmlPath()), nullptr);
}

TEST_F(Value, FindsTheRootBehindDeclarationAndComment) {
    Load("A", "<?xml version=\"1.0\"?><!-- c --><A><B>x</B></A>");
    EXPECT_EQ(Read("A.B"), "x");
}

TEST_F(Value, BacktracksOverSeveralLevels) {
    Load("A",
         "<A><B><C><X/></C><C/></B><B/><B><C/><C><D>deep</D></C></B><B><C><D>late</D></C></B></A>");
    EXPECT_EQ(Read("A.B.C.D"), "deep");
    EXPECT_EQ(Read("A.B.C.D.E"), "-4");
    EXPECT_EQ(Read("A.B.X"), "-4");
}

TEST_F(Value, SeveralRootsAreSearchedInOrder) {
    Load("A", "<A><B>1</B></A><A><C>2</C></A>");
    EXPECT_EQ(Read("A.C"), "2");
}

TEST_F(Value, SearchDoesNotLeaveThePlaceItStartsAt) {
    XmlDocument& doc = Load("A", "<A><B><C>1</C></B><D><C>2</C></D></A>");
    XmlPath list;
    ASSERT_TRUE(SplitXmlPath("B.D", list));
    EXPECT_EQ(FindXmlElement(doc.RootElement()->FirstChildElement(), list), nullptr);
    ASSERT_TRUE(SplitXmlPath("D.C", list));
    ASSERT_NE(FindXmlElement(doc.RootElement()->FirstChildElement(), list), nullptr);
}

TEST_F(Value, ResultsOfReading) {
    Load("Account",
         "<Account><User1><Name>n</Name></User1><Empty/><Mixed><!--c-->t</Mixed></Account>");
    EXPECT_EQ(Read(""), "-7");
    EXPECT_EQ(Read("..."), "-7");
    EXPECT_EQ(Read(".*"), "-7");
    EXPECT_EQ(Read("Account.*"), "-7");
    EXPECT_EQ(Read("Nope"), "-4");
    EXPECT_EQ(Read("Nope.*"), "-4");
    EXPECT_EQ(Read("*"), "-4");
    EXPECT_EQ(Read("Account.Nope"), "-4");
    EXPECT_EQ(Read("Account.User1"), "-4");
    EXPECT_EQ(Read("Account.Empty"), "-4");
    EXPECT_EQ(Read("Account.Mixed"), "-4");  // its first child is no text
    EXPECT_EQ(Read("Account..User1.Name."), "n");
    EXPECT_EQ(Read("account.User1.Name"), "-4");
}

TEST_F(Value, DocumentWithADotInItsNameCannotBeReached) {
    Load("Account.xml", "<Account><A>1</A></Account>");
    EXPECT_EQ(Read("Account.xml.A"), "-4");
}

TEST_F(Value, OnlyTheFirst511BytesOfAPathCount) {
    Load("A", "<A><B>x</B></A>");
    std::string path = "A.B";
    path.append(508, '.');
    EXPECT_EQ(Read(path + "C"), "x");
    path.pop_back();
    EXPECT_EQ(Read(path + "C"), "-4");
}

TEST_F(Value, SecretThatCannotBeDecoded) {
    Load("A", "<A><Password>enc:abc</Password></A>");
    Load("B", "<B><Password>plain</Password></B>");
    Load("C", "<C><Password>enc:5:****</Password></C>");
    EXPECT_EQ(Read("A.Password"), "");
    EXPECT_EQ(Read("B.Password"), "plain");
    EXPECT_EQ(Read("C.Password"), "");
}

TEST_F(Value, TextEndsAtANul) {
    Load("A", "<A><B>x&#0;y</B></A>");
    EXPECT_EQ(Read("A.B"), "x");
}

TEST_F(Value, SecretNameInAnyCase) {
    EXPECT_TRUE(IsSecretName("Password"));
    EXPECT_TRUE(IsSecretName("pASSWORD"));
    EXPECT_FALSE(IsSecretName("Passwords"));
    EXPECT_FALSE(IsSecretName("Passwor"));
    EXPECT_FALSE(IsSecretName(""));
}

}  // namespace
}  // namespace veltrancord
