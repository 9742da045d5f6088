#include "schema/description.h"

#include <gtest/gtest.h>

#include "schema/reader_fixture.h"

namespace veltrancord::schema {
namespace {

TEST(ClientName, IsWrittenAsClientsWritePaths) {
    EXPECT_EQ(client_name("Zone_20A"), "Zone A");
    EXPECT_EQ(client_name("Log_5Flevel"), "Log_level");
    EXPECT_EQ(client_name("a_b"), "a_b");
    EXPECT_EQ(client_name("a_2"), "a_2");
    EXPECT_EQ(stored_name("Zone A"), "Zone_20A");
    EXPECT_EQ(stored_name("Log_level"), "Log_5Flevel");
}

TEST(SplitNumber, NeedsANameAndANumber) {
    std::string_view base;
    uint32_t number = 0;
    ASSERT_TRUE(split_number("User12", base, number));
    EXPECT_EQ(base, "User");
    EXPECT_EQ(number, 12U);
    for (const char* name : {"User", "12", "User01", "User1x", "User1234567890", ""}) {
        EXPECT_FALSE(split_number(name, base, number)) << name;
    }
}

TEST(Notes, AreToldInTheLanguageAskedForOrInEnglish) {
    notes told;
    EXPECT_EQ(told.label("de"), "");
    told.labels = {{"fr", "Taille"},
                   {"en", "Size"},
                   {"de",
                    "Gr\xC3\xB6\xC3\x9F"
                    "e"}};
    EXPECT_EQ(told.label("de_DE.UTF-8"),
              "Gr\xC3\xB6\xC3\x9F"
              "e");
    EXPECT_EQ(told.label("it"), "Size");
    told.labels.resize(1);
    EXPECT_EQ(told.label("it"), "Taille");
}

TEST(Families, BeginWithOneAndAreOrderedByNumber) {
    const auto made = read_body(
        "<xs:complexType name='U'><xs:all/></xs:complexType><xs:element name='D'><xs:complexType>"
        "<xs:all><xs:element name='User10' type='U'/><xs:element name='User2' type='U'/>"
        "<xs:element name='User1' type='U'/><xs:element name='Ipv4' type='U'/>"
        "<xs:element name='Ipv6' type='U'/><xs:element name='Alone1' type='U'/></xs:all>"
        "</xs:complexType></xs:element>");
    ASSERT_TRUE(made);
    const std::vector<family> found = families_of(*made->root.structure);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].base, "User");
    EXPECT_EQ(found[0].first, 1U);
    EXPECT_EQ(found[0].last, 10U);
    EXPECT_EQ(found[0].members[1]->name, "User2");
    EXPECT_EQ(found[0].members[2]->name, "User10");
}

TEST(TypeText, SaysWhatMayStandThere) {
    const auto text_of = [](const std::string& facets, const std::string& base) {
        const auto made =
            read_body("<xs:element name='D'><xs:simpleType><xs:restriction base='xs:" + base +
                      "'>" + facets + "</xs:restriction></xs:simpleType></xs:element>");
        return made ? type_text(*made->root.value) : "none";
    };
    EXPECT_EQ(text_of("", "string"), "a text");
    EXPECT_EQ(text_of("", "unsignedByte"), "a whole number from 0 to 255");
    EXPECT_EQ(text_of("<xs:minInclusive value='0.5'/>", "decimal"), "a number from 0.5 on");
    EXPECT_EQ(text_of("<xs:minLength value='1'/><xs:maxLength value='32'/>", "string"),
              "a text of 1 to 32 characters");
    EXPECT_EQ(text_of("<xs:maxLength value='1'/>", "string"), "a text of at most 1 character");
    EXPECT_EQ(text_of("<xs:enumeration value='YES'/><xs:enumeration value='NO'/>", "string"),
              "one of YES, NO");
    EXPECT_EQ(text_of("<xs:pattern value='[a-f]+'/>", "string"), "a text that matches [a-f]+");
}

TEST(Settings, AreListedWithTheirPathsAsClientsWriteThem) {
    const auto made = read_body(
        "<xs:element name='D'><xs:complexType><xs:all><xs:element name='Zone_20A'><xs:complexType>"
        "<xs:all><xs:element name='Area' type='xs:string' default='0,0'/></xs:all>"
        "</xs:complexType></xs:element><xs:element name='Name' type='xs:string'/></xs:all>"
        "</xs:complexType></xs:element>");
    ASSERT_TRUE(made);
    const std::vector<described_setting> settings = settings_of(*made);
    ASSERT_EQ(settings.size(), 2U);
    EXPECT_EQ(settings[0].path, "D.Zone A.Area");
    EXPECT_EQ(settings[1].path, "D.Name");
}

}  // namespace
}  // namespace veltrancord::schema
