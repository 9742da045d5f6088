#include "xml/syntax.h"

#include <gtest/gtest.h>

#include <string>

#include "xml/document.h"
#include "xml/text.h"

namespace veltrancord {
namespace {

// Whether a document with this name and text in the middle is read back to its end.
bool survives(const std::string& declaration, const std::string& name, const std::string& text) {
    XmlDocument saved("A");
    EXPECT_TRUE(saved.LoadXMLFile((declaration + "<A><First>1</First></A>").c_str()));
    TiXmlElement* const root = saved.RootElement();
    auto* const element = root->LinkEndChild(new TiXmlElement(name))->ToElement();
    element->SetAttribute("Note", text);
    element->LinkEndChild(new TiXmlText(text));
    root->LinkEndChild(new TiXmlElement("Last"))->LinkEndChild(new TiXmlText("2"));
    XmlDocument loaded("A");
    return loaded.LoadXMLFile(SerialiseXmlDoc(saved).c_str()) &&
           loaded.RootElement()->FirstChildElement("Last") != nullptr;
}

bool is_whole(const std::string& declaration, const std::string& text) {
    XmlDocument document("A");
    EXPECT_TRUE(document.LoadXMLFile((declaration + "<A/>").c_str()));
    return IsXmlTextWhole(*document.RootElement(), text);
}

TEST(XmlSyntax, NamesAreThoseThatTheParserReadsBack) {
    for (const char* name : {"A", "z", "_", "A1", "A-b.c:d", "Name_20x", "\xC3\xA9"}) {
        EXPECT_TRUE(IsXmlName(name)) << name;
        EXPECT_TRUE(survives("", name, "x")) << name;
    }
    for (const char* name : {"1", "1abc", "-a", ".a", "*", "a*b", "a b", "a<", "a=b"}) {
        EXPECT_FALSE(IsXmlName(name)) << name;
        EXPECT_FALSE(survives("", name, "x")) << name;
    }
    EXPECT_FALSE(IsXmlName(""));
}

TEST(XmlSyntax, TextThatEndsWithinACharacterWouldTakeInWhatFollows) {
    for (const std::string declaration :
         {"<?xml version=\"1.0\"?>", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
          "<?xml version=\"1.0\" encoding=\"utf8\"?>", "\xEF\xBB\xBF"}) {
        for (const char* text : {"", "a", "caf\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x94\x92"}) {
            EXPECT_TRUE(is_whole(declaration, text)) << declaration << text;
            EXPECT_TRUE(survives(declaration, "B", text)) << declaration << text;
        }
        for (const char* text : {"\xC3", "caf\xE9", "a\xE2\x82", "a\xF0\x9F\x94"}) {
            EXPECT_FALSE(is_whole(declaration, text)) << declaration << text;
            EXPECT_FALSE(survives(declaration, "B", text)) << declaration << text;
        }
    }
}

TEST(XmlSyntax, ACharacterCutShortWouldTakeInTheBeginningOfAnEntity) {
    const std::string declaration = "<?xml version=\"1.0\"?>";
    for (const char* text : {"caf\xE9 & bar", "\xD2\x1B", "a\xC3<b", "\xF0  \"x", "\xE2\x82'x"}) {
        EXPECT_FALSE(is_whole(declaration, text)) << text;
        EXPECT_TRUE(is_whole("", text)) << text;
    }
    for (const char* text :
         {"caf\xC3\xA9 & bar", "caf\xE9 bar & x", "\xC3\xA9<\xC3\xA9", "<&\x1B"}) {
        EXPECT_TRUE(is_whole(declaration, text)) << text;
    }
}

TEST(XmlSyntax, OtherDocumentsHoldTextOfAnyEncoding) {
    for (const std::string declaration : {"", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"}) {
        for (const char* text : {"\xC3", "caf\xE9", "a\xF0\x9F\x94"}) {
            EXPECT_TRUE(is_whole(declaration, text)) << declaration << text;
            EXPECT_TRUE(survives(declaration, "B", text)) << declaration << text;
        }
    }
}

}  // namespace
}  // namespace veltrancord
