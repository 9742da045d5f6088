#include "store/change.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "leaf/result.h"
#include "store/value.h"
#include "xml/text.h"

namespace veltrancord {
namespace {

class Change : public testing::Test {
  protected:
    ~Change() override { FreeXmlDocs(); }

    static XmlDocument& Load(const char* name, const char* text) {
        auto doc = std::make_unique<XmlDocument>(name);
        EXPECT_TRUE(doc->LoadXMLFile(text));
        return *AddXmlDocNode(name, "", std::move(doc))->doc;
    }

    static int32_t Set(XmlDocument& doc, std::string_view path, std::string_view text) {
        XmlPath list;
        EXPECT_TRUE(SplitXmlPath(path, list));
        return SetXmlValue(doc, list, text) != nullptr ? result_ok : result_store_failed;
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

    static std::string Text(const XmlDocument& doc) {
        std::string text;
        TiXmlPrinter printer;
        printer.SetStreamPrinting();
        doc.Accept(&printer);
        return printer.Str();
    }
};

TEST_F(Change, ReadingBacktracksWhereWritingTakesTheFirst) {
    XmlDocument& doc = Load("Account",
                            "<Account><User><Name>a</Name></User><User><Level>2</Level></User>"
                            "</Account>");
    EXPECT_EQ(Read("Account.User.Level"), "2");
    EXPECT_EQ(Set(doc, "Account.User.Level", "1"), result_ok);
    EXPECT_EQ(Text(doc),
              "<Account><User><Name>a</Name><Level>1</Level></User><User><Level>2</Level></User>"
              "</Account>");
    EXPECT_EQ(Read("Account.User.Level"), "1");
}

TEST_F(Change, SecretIsStoredEncodedAndReadPlainWithItsStoredLength) {
    XmlDocument& doc = Load("Account", "<Account><User1/></Account>");
    for (const char* const path : {"Account.User1.Password", "Account.User1.PASSWORD"}) {
        EXPECT_EQ(Set(doc, path, "secret"), result_ok);
        const std::string stored(XmlElementText(*Find(doc, path)));
        EXPECT_EQ(stored.substr(0, 6), "enc:6:");
        XmlValue out;
        EXPECT_EQ(ReadXmlValue(path, out), static_cast<int32_t>(stored.size()));
        EXPECT_EQ(out.text, "secret");
    }
    EXPECT_EQ(Set(doc, "Account.User1.Password2", "open"), result_ok);
    EXPECT_EQ(XmlElementText(*Find(doc, "Account.User1.Password2")), "open");
    EXPECT_EQ(Set(doc, "Account.Password.Hint", "open"), result_ok);
    EXPECT_EQ(XmlElementText(*Find(doc, "Account.Password.Hint")), "open");
}

TEST_F(Change, SecretWhoseFormDoesNotFitChangesNothing) {
    XmlDocument& doc = Load("A", "<A><Password>old</Password></A>");
    EXPECT_EQ(Set(doc, "A.Password", std::string(184, 'x')), result_store_failed);
    EXPECT_EQ(Set(doc, "A.New.Password", std::string(184, 'x')), result_store_failed);
    EXPECT_EQ(Text(doc), "<A><Password>old</Password></A>");
    EXPECT_EQ(Set(doc, "A.Password", std::string(183, 'x')), result_ok);
    EXPECT_EQ(Read("A.Password"), std::string(183, 'x'));
}

TEST_F(Change, SecretOf300BytesKeeps44OfThem) {
    XmlDocument& doc = Load("A", "<A/>");
    EXPECT_EQ(Set(doc, "A.Password", std::string(300, 'x')), result_ok);
    EXPECT_EQ(Read("A.Password"), std::string(44, 'x'));
}

TEST_F(Change, WritingCreatesMissingElementsEachAsTheLastChild) {
    XmlDocument& doc = Load("Account", "<Account><User1>x</User1></Account>");
    EXPECT_EQ(Set(doc, "Account.Wifi.SSID", "home"), result_ok);
    EXPECT_EQ(Text(doc), "<Account><User1>x</User1><Wifi><SSID>home</SSID></Wifi></Account>");
}

TEST_F(Change, WritingIntoAnEmptyDocumentCreatesItsRoot) {
    XmlDocument doc("A");
    EXPECT_EQ(Set(doc, "A.B", "1"), result_ok);
    EXPECT_EQ(Text(doc), "<A><B>1</B></A>");
}

TEST_F(Change, WritingReplacesTheFirstChildWhateverItIs) {
    const auto after = [](const char* text) {
        XmlDocument doc("A");
        EXPECT_TRUE(doc.LoadXMLFile(text));
        EXPECT_EQ(Set(doc, "A.B", "new"), result_ok);
        return Text(doc);
    };
    EXPECT_EQ(after("<A><B>old</B></A>"), "<A><B>new</B></A>");
    EXPECT_EQ(after("<A><B><C>1</C><D/></B></A>"), "<A><B><D />new</B></A>");
    EXPECT_EQ(after("<A><B><!--c-->old</B></A>"), "<A><B>oldnew</B></A>");
    EXPECT_EQ(after("<A><B>old<C/></B></A>"), "<A><B><C />new</B></A>");
    EXPECT_EQ(after("<A><B><![CDATA[old]]></B></A>"), "<A><B>new</B></A>");
    EXPECT_EQ(after("<A><B/><B>2</B></A>"), "<A><B>new</B><B>2</B></A>");
    EXPECT_EQ(after("<A><C>B</C><!--B--></A>"), "<A><C>B</C><!--B--><B>new</B></A>");
}

TEST_F(Change, WritingAgainReplacesTheTextWrittenBefore) {
    XmlDocument& doc = Load("A", "<A><B><C>1</C></B></A>");
    EXPECT_EQ(Set(doc, "A.B", "first"), result_ok);
    EXPECT_EQ(Read("A.B"), "first");
    EXPECT_EQ(Set(doc, "A.B", "second"), result_ok);
    EXPECT_EQ(Text(doc), "<A><B>second</B></A>");
}

TEST_F(Change, EmptyTextIsATextUntilTheDocumentIsLoadedAnew) {
    XmlDocument& doc = Load("A", "<A><B>old</B></A>");
    EXPECT_EQ(Set(doc, "A.B", ""), result_ok);
    EXPECT_EQ(Read("A.B"), "");
    EXPECT_EQ(Set(doc, "A.New", ""), result_ok);
    EXPECT_EQ(Read("A.New"), "");
    const std::string saved = SerialiseXmlDoc(doc);
    EXPECT_EQ(saved, "<A>\n    <B></B>\n    <New></New>\n</A>\n");
    EXPECT_TRUE(doc.LoadXMLFile(saved.c_str()));
    EXPECT_EQ(Read("A.B"), "-4");
    EXPECT_EQ(Read("A.New"), "-4");
}

TEST_F(Change, DeepestPathThatTextCanName) {
    XmlDocument& doc = Load("a", "<a/>");
    std::string path = "a";
    for (int i = 1; i < 256; ++i) {
        path += ".a";
    }
    EXPECT_EQ(Set(doc, path, "bottom"), result_ok);
    EXPECT_EQ(Read(path), "bottom");
}

// A name that begins with a digit, or a character cut short, would end the document at the next
// start, and the save after that would lose every setting behind it.
TEST_F(Change, RefusesWhatCouldNotBeReadBack) {
    XmlDocument& doc = Load("A", "<?xml version=\"1.0\"?><A><B>old</B></A>");
    for (const char* path : {"A.1st", "A.*", "A.C.-x.D", "A.C.D.9"}) {
        EXPECT_EQ(Set(doc, path, "x"), result_store_failed) << path;
    }
    EXPECT_EQ(Set(doc, "A.B", "caf\xE9"), result_store_failed);
    EXPECT_EQ(Set(doc, "A.C", "caf\xE9"), result_store_failed);
    EXPECT_EQ(Text(doc), "<?xml version=\"1.0\" ?><A><B>old</B></A>");
    EXPECT_EQ(Set(doc, "A.B", "caf\xC3\xA9"), result_ok);
    EXPECT_EQ(Read("A.B"), "caf\xC3\xA9");
}

}  // namespace
}  // namespace veltrancord
