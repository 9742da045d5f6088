#include "schema/reader.h"

#include <gtest/gtest.h>

#include "schema/reader_fixture.h"

namespace veltrancord::schema {
namespace {

// The first mistake of a description, "line: text", or nothing.
std::string first_mistake(const std::string& body) {
    std::vector<mistake> mistakes;
    const auto made = read_body(body, mistakes);
    EXPECT_EQ(made == nullptr, !mistakes.empty());
    return mistakes.empty() ? "" : std::to_string(mistakes[0].line) + ": " + mistakes[0].text;
}

std::string in_type(const std::string& base, const std::string& facets) {
    return "<xs:element name='D'><xs:simpleType><xs:restriction base='" + base + "'>" + facets +
           "</xs:restriction></xs:simpleType></xs:element>";
}

std::string in_all(const std::string& elements) {
    return "<xs:element name='D'><xs:complexType><xs:all>" + elements +
           "</xs:all></xs:complexType></xs:element>";
}

TEST(Reader, ReadsAnElementWithAllThatIsToldOfIt) {
    const auto made = read_body(
        in_all(
            "<xs:element name='Mtu' type='Size' minOccurs='0' default='1500'><xs:annotation>"
            "<xs:documentation xml:lang='en'>Packet size</xs:documentation>"
            "<xs:documentation xml:lang='de'>Paketgr&#xF6;&#xDF;e</xs:documentation>"
            "<xs:documentation xml:lang='en' source='help'>Ask your\n provider.</xs:documentation>"
            "<xs:appinfo><unit>bytes</unit><order>3</order><group>Lan</group><secret/></xs:appinfo>"
            "</xs:annotation></xs:element>") +
        "<xs:simpleType name='Size'><xs:restriction base='xs:unsignedShort'>"
        "<xs:minInclusive value='0068'/></xs:restriction></xs:simpleType>");
    ASSERT_TRUE(made);
    const element_description* const mtu = made->root.child("Mtu");
    ASSERT_NE(mtu, nullptr);
    EXPECT_FALSE(mtu->required);
    EXPECT_EQ(mtu->default_value, "1500");
    EXPECT_EQ(mtu->value->name, "Size");
    EXPECT_EQ(mtu->value->base_name, "unsignedShort");
    EXPECT_EQ(mtu->value->least, "68");
    EXPECT_EQ(mtu->value->most, "65535");
    EXPECT_EQ(mtu->told.label("de"),
              "Paketgr\xC3\xB6\xC3\x9F"
              "e");
    EXPECT_EQ(mtu->told.help("de"), "Ask your provider.");
    EXPECT_EQ(mtu->told.unit, "bytes");
    EXPECT_EQ(mtu->told.order, 3);
    EXPECT_EQ(mtu->told.group, "Lan");
    EXPECT_TRUE(mtu->secret());
    EXPECT_EQ(made->root.child("Mt"), nullptr);
}

TEST(Reader, ReadsTextsWithAttributes) {
    const auto made = read_body(
        "<xs:element name='D'><xs:complexType><xs:simpleContent><xs:extension base='xs:int'>"
        "<xs:attribute name='Level' type='xs:byte' use='required'/>"
        "<xs:attribute name='AllowToShow'><xs:simpleType><xs:restriction base='xs:string'>"
        "<xs:enumeration value='NO'/></xs:restriction></xs:simpleType></xs:attribute>"
        "</xs:extension></xs:simpleContent></xs:complexType></xs:element>");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->root.value->base_name, "int");
    ASSERT_NE(made->root.attribute("Level"), nullptr);
    EXPECT_TRUE(made->root.attribute("Level")->required);
    EXPECT_EQ(made->root.attribute("AllowToShow")->type->values.size(), 1U);
    EXPECT_EQ(made->root.attribute("Dispatch"), nullptr);
}

TEST(Reader, TellsTheLineAndWhatToWriteInstead) {
    EXPECT_EQ(first_mistake("\n\n" + in_all("<xs:choice/>")),
              "3: <xs:choice> is not read here; write xs:all, and minOccurs=\"0\" at each element");
    EXPECT_EQ(first_mistake(in_all("\n<xs:element name='U' type='xs:int' maxOccurs='unbounded'/>")),
              "2: has maxOccurs=\"unbounded\", and a path reaches only the first; number the "
              "elements: User1, User2");
    EXPECT_EQ(first_mistake(in_all("<xs:element name='U' type='xs:float'/>")),
              "1: xs:float is not read here; write xs:decimal");
}

TEST(Reader, PassesNothingOverInSilence) {
    const std::string yes = in_type("xs:string", "");
    EXPECT_EQ(first_mistake(yes), "");
    for (const std::string& body : {
             std::string(),
             std::string("<xs:element name='X' type='xs:int'/>"),
             yes + yes,
             "<other/>" + yes,
             "text" + yes,
             "<xs:include/>" + yes,
             "<xs:annotation/>" + yes,
             std::string("<xs:element name='D'/>"),
             std::string("<xs:element type='xs:int'/>"),
             std::string("<xs:element name='D' type='Missing'/>"),
             std::string("<xs:element name='D' type='xs:int' id='a'/>"),
             std::string("<xs:element name='D' type='xs:int' minOccurs='0'/>"),
             std::string("<xs:element name='D' type='xs:int' default='x'/>"),
             std::string("<xs:element name='D' type='xs:int'><xs:simpleType/></xs:element>"),
             std::string("<xs:element name='D'><xs:simpleType/></xs:element>"),
             std::string("<xs:element name='D'><xs:complexType mixed='true'/></xs:element>"),
             std::string("<xs:element name='D'><xs:complexType><xs:simpleContent/>"
                         "</xs:complexType></xs:element>"),
             std::string("<xs:element name='D'><xs:complexType><xs:attribute name='a' "
                         "type='xs:int'/><xs:all/></xs:complexType></xs:element>"),
             std::string("<xs:element name='D'><xs:complexType><xs:all/><xs:sequence/>"
                         "</xs:complexType></xs:element>"),
             in_all("<xs:element name='a b' type='xs:int'/>"),
             in_all("<xs:element name='a' type='xs:int'/><xs:element name='a' type='xs:int'/>"),
             in_all("<xs:element name='a' type='xs:int' minOccurs='2'/>"),
             in_all("<xs:element name='a' type='xs:int' fixed='2'/>"),
             in_all("<xs:sequence/>"),
             in_type("xs:string", "<xs:maxLength value='3'/><xs:annotation/>"),
             in_type("xs:string", "<xs:annotation/><xs:annotation/>"),
             "<xs:simpleType name='T'><xs:restriction base='xs:int'/></xs:simpleType>"
             "<xs:complexType name='T'><xs:all/></xs:complexType>" +
                 yes,
             "<xs:complexType name='T'><xs:all><xs:element name='a' type='T'/></xs:all>"
             "</xs:complexType>" +
                 yes,
             "<xs:simpleType name='T'><xs:restriction base='T'/></xs:simpleType>" + yes,
             in_type("xs:string", "<xs:length value='3'/>"),
             in_type("xs:string", "<xs:minLength value='x'/>"),
             in_type("xs:string", "<xs:minLength/>"),
             in_type("xs:string", "<xs:minLength value='3'/><xs:minLength value='3'/>"),
             in_type("xs:string", "<xs:minLength value='3'/><xs:maxLength value='2'/>"),
             in_type("xs:string", "<xs:minInclusive value='3'/>"),
             in_type("xs:string", "<xs:pattern value='\\p{L}'/>"),
             in_type("xs:string", "<xs:enumeration value='a'/><xs:enumeration value='a'/>"),
             in_type("xs:int", "<xs:enumeration value='a'/>"),
             in_type("xs:int", "<xs:enumeration value='1'/><xs:enumeration value='01'/>"),
             in_type("xs:int", "<xs:minInclusive value='9'/><xs:maxInclusive value='8'/>"),
             in_type("xs:byte", "<xs:maxInclusive value='128'/>"),
             in_type("xs:int", "<xs:maxLength value='3'/>"),
             in_type("xs:boolean", "<xs:enumeration value='true'/>"),
             in_type("xs:time", "<xs:minInclusive value='08:00:00Z'/>"),
             in_type("xs:token", ""),
             in_type("xs:string", "<xs:simpleType/>"),
         }) {
        EXPECT_NE(first_mistake(body), "") << body;
    }
}

TEST(Reader, NeedsTheNamespaceOfXmlSchema) {
    std::vector<mistake> mistakes;
    EXPECT_EQ(read_description("D", "D.xsd", "<xs:schema/>", mistakes), nullptr);
    EXPECT_EQ(read_description("D", "D.xsd", "<D", mistakes), nullptr);
    EXPECT_EQ(read_description("D", "D.xsd", "", mistakes), nullptr);
    EXPECT_EQ(mistakes.size(), 3U);
    EXPECT_NE(read_description("D", "D.xsd",
                               "<s:schema xmlns:s='http://www.w3.org/2001/XMLSchema'>"
                               "<s:element name='D' type='s:int'/></s:schema>",
                               mistakes),
              nullptr);
}

TEST(Reader, TakesFacetsOfTheTypesBelow) {
    const auto made = read_body(
        "<xs:simpleType name='A'><xs:restriction base='xs:int'><xs:minInclusive value='1'/>"
        "<xs:pattern value='[0-9]+'/></xs:restriction></xs:simpleType>"
        "<xs:simpleType name='B'><xs:restriction base='A'><xs:maxInclusive value='9'/>"
        "<xs:pattern value='.'/></xs:restriction></xs:simpleType>"
        "<xs:element name='D' type='B'/>");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->root.value->least, "1");
    EXPECT_EQ(made->root.value->most, "9");
    EXPECT_EQ(made->root.value->patterns.size(), 2U);
    EXPECT_NE(
        first_mistake("<xs:simpleType name='A'><xs:restriction base='xs:string'><xs:maxLength "
                      "value='3'/></xs:restriction></xs:simpleType>" +
                      in_type("A", "<xs:maxLength value='4'/>")),
        "");
}

TEST(Reader, BoundsWhatItGoesDown) {
    std::string deep;
    for (int level = 0; level < 3000; ++level) {
        deep += "<xs:complexType name='T" + std::to_string(level) +
                "'><xs:all><xs:element name='a' type='T" + std::to_string(level + 1) +
                "'/></xs:all></xs:complexType>";
    }
    deep +=
        "<xs:complexType name='T3000'><xs:all/></xs:complexType><xs:element name='D' "
        "type='T0'/>";
    EXPECT_NE(first_mistake(deep).find("too deep"), std::string::npos);
    std::string wide;
    for (int level = 0; level < 8; ++level) {
        wide += "<xs:complexType name='T" + std::to_string(level) + "'><xs:all>";
        for (int member = 1; member <= 20; ++member) {
            wide += "<xs:element name='a" + std::to_string(member) + "' type='" +
                    (level < 7 ? "T" + std::to_string(level + 1) : "xs:int") + "'/>";
        }
        wide += "</xs:all></xs:complexType>";
    }
    EXPECT_NE(first_mistake(wide + "<xs:element name='D' type='T0'/>").find("100000 settings"),
              std::string::npos);
    EXPECT_NE(first_mistake(std::string(100000, '<')), "");
    std::string nested;
    for (int level = 0; level < 100000; ++level) {
        nested += "<a>";
    }
    EXPECT_NE(first_mistake(nested).find("512 deep"), std::string::npos);
}

TEST(LookOver, TellsOfGapsGuessesAndTypesThatDiffer) {
    const auto made = read_body(
        "<xs:complexType name='U'><xs:all/></xs:complexType>" +
        in_all("<xs:element name='User1' type='U'/>\n<xs:element name='User3' type='U'/>\n"
               "<xs:element name='Port1' type='xs:int'/><xs:element name='Port2' "
               "type='xs:string'/>\n<xs:element name='Guessed' type='xs:int'><xs:annotation>"
               "<xs:appinfo><guess/></xs:appinfo></xs:annotation></xs:element>"));
    ASSERT_TRUE(made);
    std::vector<mistake> mistakes;
    look_over(*made, "D.xsd", mistakes);
    ASSERT_EQ(mistakes.size(), 3U);
    EXPECT_EQ(mistakes[0].line, 2U);
    EXPECT_EQ(mistakes[0].text, "the family User has a gap: User2 is missing before User3");
    EXPECT_EQ(mistakes[1].text,
              "Port2 is of another type than Port1; a family has one type, with a name");
    EXPECT_EQ(mistakes[2].line, 4U);
}

}  // namespace
}  // namespace veltrancord::schema
