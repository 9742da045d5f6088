#include "schema/check.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "schema/reader_fixture.h"

namespace veltrancord::schema {
namespace {

// What a value of a restriction of `base` breaks: the rule, or nothing.
std::string broken(const std::string& base, const std::string& facets, const std::string& value) {
    const auto made =
        read_body("<xs:element name='D'><xs:simpleType><xs:restriction base='xs:" + base + "'>" +
                  facets + "</xs:restriction></xs:simpleType></xs:element>");
    if (!made) {
        return "no type";
    }
    const auto found = check_text(*made->root.value, value);
    return found ? found->rule : "";
}

std::string nearest(const std::string& base, const std::string& facets, const std::string& value) {
    const auto made =
        read_body("<xs:element name='D'><xs:simpleType><xs:restriction base='xs:" + base + "'>" +
                  facets + "</xs:restriction></xs:simpleType></xs:element>");
    const auto found = check_text(*made->root.value, value);
    return found && found->nearest ? *found->nearest : "none";
}

TEST(CheckText, KnowsTheWidthsOfIntegers) {
    const char* const rows[][3] = {
        {"byte", "-128", "127"},
        {"short", "-32768", "32767"},
        {"int", "-2147483648", "2147483647"},
        {"long", "-9223372036854775808", "9223372036854775807"},
        {"unsignedByte", "0", "255"},
        {"unsignedShort", "0", "65535"},
        {"unsignedInt", "0", "4294967295"},
        {"unsignedLong", "0", "18446744073709551615"},
    };
    for (const auto& [name, least, most] : rows) {
        EXPECT_EQ(broken(name, "", least), "") << name;
        EXPECT_EQ(broken(name, "", most), "") << name;
        std::string above = most;
        ++above.back();
        EXPECT_EQ(broken(name, "", above), rule::max_inclusive) << name;
        std::string below = least;
        below = below == "0" ? "-1" : below;
        ++below.back();
        EXPECT_NE(broken(name, "", below), "") << name;
    }
    EXPECT_EQ(broken("int", "", "14o0"), rule::type);
    EXPECT_EQ(broken("int", "", " +5\t"), "");
    EXPECT_EQ(broken("unsignedInt", "", "+5"), rule::type);
    EXPECT_EQ(broken("int", "", "1.0"), rule::type);
    EXPECT_EQ(broken("positiveInteger", "", "0"), rule::min_inclusive);
    EXPECT_EQ(broken("integer", "", "99999999999999999999999"), "");
    EXPECT_EQ(broken("decimal", "<xs:maxInclusive value='0.3'/>", "0.30000000000000000001"),
              rule::max_inclusive);
}

TEST(CheckText, CountsCharactersAndNotBytes) {
    const std::string four = "<xs:minLength value='2'/><xs:maxLength value='4'/>";
    EXPECT_EQ(broken("string", four, "\xC3\xA4\xC3\xB6\xC3\xBC\xE2\x82\xAC"), "");
    EXPECT_EQ(broken("string", four, "\xE2\x82\xAC"), rule::min_length);
    EXPECT_EQ(broken("string", four, "abcde"), rule::max_length);
    EXPECT_EQ(broken("string", four, "    "), "");  // blanks count in texts
}

TEST(CheckText, ComparesEnumerationsByValue) {
    const std::string two = "<xs:enumeration value='10'/><xs:enumeration value='20'/>";
    EXPECT_EQ(broken("int", two, "010"), "");
    EXPECT_EQ(broken("string", two, "010"), rule::enumeration);
    EXPECT_EQ(broken("string", "<xs:enumeration value='YES'/>", "yes"), rule::enumeration);
}

TEST(CheckText, KnowsTimesAndDates) {
    EXPECT_EQ(broken("time", "", "24:00:00"), "");
    EXPECT_EQ(broken("date", "", "2023-02-29"), rule::type);
    const std::string day =
        "<xs:minInclusive value='08:00:00'/><xs:maxInclusive value='18:00:00'/>";
    EXPECT_EQ(broken("time", day, "18:00:00"), "");
    EXPECT_EQ(broken("time", day, "18:00:01"), rule::max_inclusive);
    EXPECT_EQ(broken("time", day, "07:59:59.9"), rule::min_inclusive);
    EXPECT_EQ(broken("boolean", "", "YES"), rule::type);
    EXPECT_EQ(broken("boolean", "", "1"), "");
}

TEST(CheckText, NamesTheNearestValueThatWouldDo) {
    const std::string range = "<xs:minInclusive value='68'/><xs:maxInclusive value='9000'/>";
    EXPECT_EQ(nearest("int", range, "14o0"), "1400");
    EXPECT_EQ(nearest("int", range, "12"), "68");
    EXPECT_EQ(nearest("int", range, "99999"), "9000");
    EXPECT_EQ(nearest("int", range, "1500.7"), "1500");
    EXPECT_EQ(nearest("int", range, "abc"), "none");
    EXPECT_EQ(
        nearest("string", "<xs:enumeration value='vbr'/><xs:enumeration value='cbr'/>", "CBR"),
        "cbr");
    EXPECT_EQ(nearest("string", "<xs:maxLength value='2'/>", "\xC3\xA4\xC3\xB6\xC3\xBC"),
              "\xC3\xA4\xC3\xB6");
    EXPECT_EQ(nearest("string", "<xs:minLength value='2'/>", "a"), "none");
    EXPECT_EQ(nearest("time", "", "6:30"), "06:30:00");
}

constexpr const char* network =
    "<xs:element name='D'><xs:complexType><xs:sequence>"
    "<xs:element name='Name' type='xs:string'/>"
    "<xs:element name='Lan' minOccurs='0'><xs:complexType><xs:all>"
    "<xs:element name='Mtu' type='xs:byte' minOccurs='0' default='5'/>"
    "<xs:element name='Password' type='Short' minOccurs='0'/></xs:all>"
    "<xs:attribute name='Level' type='xs:byte'/>"
    "<xs:attribute name='Kind' type='xs:byte' use='required'/></xs:complexType></xs:element>"
    "</xs:sequence></xs:complexType></xs:element>"
    "<xs:simpleType name='Short'><xs:restriction base='xs:string'><xs:maxLength value='3'/>"
    "</xs:restriction></xs:simpleType>";

// The violations of a document as lines "line path@attribute rule".
std::string violations_of(const std::string& text) {
    const auto description = read_body(network);
    TiXmlDocument document;
    std::string problem;
    std::size_t line = 0;
    if (!description || !read_document(text, document, problem, line)) {
        return "not read: " + problem;
    }
    std::string lines;
    for (const violation& one : check_document(*description, *document.RootElement())) {
        lines += std::to_string(one.line) + " " + one.path +
                 (one.attribute.empty() ? "" : "@" + one.attribute) + " " + one.rule + "\n";
    }
    return lines;
}

TEST(CheckDocument, FindsNothingInARightOne) {
    EXPECT_EQ(violations_of("<D><Name>x</Name><Lan Kind='1'><Mtu/></Lan></D>"), "");
    EXPECT_EQ(violations_of("<D><!-- c --><Name/></D>"), "");
}

TEST(CheckDocument, FindsAllViolationsWithTheirLines) {
    EXPECT_EQ(violations_of("<D>\n<Lan Level='x'>\n<Mtu>500</Mtu>\n<Mut>5</Mut>\ntext</Lan>\n"
                            "<Name>a</Name><Name>b</Name></D>"),
              "2 D.Lan@Level type\n"
              "2 D.Lan@Kind missing\n"
              "2 D.Lan no-text\n"
              "3 D.Lan.Mtu maxInclusive\n"
              "4 D.Lan.Mut undescribed\n"
              "6 D.Name order\n"
              "6 D.Name twice\n");
    EXPECT_EQ(violations_of("<D Other='1'></D>"), "1 D@Other undescribed\n1 D.Name missing\n");
    EXPECT_EQ(violations_of("<D>\n<Lan Kind='1'/></D>"), "1 D.Name missing\n");
    EXPECT_EQ(violations_of("<X/>"), "1 X undescribed\n");
}

TEST(ReadDocument, RefusesWhatWouldRunTheStackOver) {
    std::string deep;
    for (int level = 0; level < 100000; ++level) {
        deep += "<a>";
    }
    EXPECT_NE(violations_of(deep).find("512 deep"), std::string::npos);
    // What looks like an end tag to a scanner is none in a comment, in a text or in a value.
    for (const char* filler :
         {"<!-- </a> -->", "<![CDATA[</a>]]>", "<b c='</a>'/>", "<!--></a>-->"}) {
        std::string hidden;
        for (int level = 0; level < 20000; ++level) {
            hidden += std::string("<a>") + filler;
        }
        const std::string told = violations_of(hidden);  // by the scanner, not by the parser
        EXPECT_TRUE(told.find("512 deep") != std::string::npos ||
                    told.find("that nothing ends") != std::string::npos)
            << filler << told;
    }
    EXPECT_NE(violations_of("<D><Name>\xC3").find("not read"), std::string::npos);
    EXPECT_NE(violations_of("").find("not read"), std::string::npos);
}

class Directory : public testing::Test {
  protected:
    Directory() {
        std::filesystem::create_directory(path_);
        std::ofstream(path_ + "/D.xsd") << "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>"
                                        << network << "</xs:schema>";
        std::ofstream(path_ + "/Bad.xsd") << "<xs:schema/>";
    }
    ~Directory() override { std::filesystem::remove_all(path_); }

    std::string path_ = testing::TempDir() + "/schema" + std::to_string(getpid());
    description_set set_{path_};
};

TEST_F(Directory, ReadsAFileWhenItIsAskedFor) {
    EXPECT_EQ(set_.documents(), (std::vector<std::string>{"Bad", "D"}));
    EXPECT_TRUE(set_.mistakes().empty());
    EXPECT_NE(set_.document("D"), nullptr);
    EXPECT_EQ(set_.document("Other"), nullptr);
    EXPECT_TRUE(set_.mistakes().empty());
    EXPECT_EQ(set_.document("Bad"), nullptr);
    EXPECT_EQ(set_.document("Bad"), nullptr);
    EXPECT_EQ(set_.mistakes().size(), 1U);
    EXPECT_EQ(set_.document("../D"), nullptr);
    EXPECT_EQ(set_.document(""), nullptr);
}

TEST_F(Directory, FindsWhatDescribesAPath) {
    ASSERT_NE(set_.find("D..Lan.Mtu"), nullptr);
    EXPECT_EQ(set_.find("D.Lan.Mtu")->name, "Mtu");
    EXPECT_EQ(set_.way_to("D.Lan.Mtu").size(), 3U);
    EXPECT_EQ(set_.find("D.Lan.Mut"), nullptr);
    EXPECT_TRUE(set_.is_described("D.Lan.Mut"));
    EXPECT_FALSE(set_.is_described("Other.Lan"));
    EXPECT_EQ(set_.find(""), nullptr);
}

TEST_F(Directory, ChecksAValueBeforeItIsWritten) {
    EXPECT_FALSE(check_value(set_, "D.Lan.Mtu", "5"));
    EXPECT_FALSE(check_value(set_, "D.Lan.Mtu", ""));  // its default
    EXPECT_FALSE(check_value(set_, "Other.Lan", "5"));
    const auto wrong = check_value(set_, "D.Lan.Mtu", "500");
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->path, "D.Lan.Mtu");
    EXPECT_EQ(sentence_of(*wrong),
              "is \"500\", and has to be a whole number from -128 to 127; the nearest is 127");
    const auto misspelt = check_value(set_, "D.Lan.Mut.x", "5");
    ASSERT_TRUE(misspelt);
    EXPECT_EQ(misspelt->rule, std::string(rule::undescribed));
    EXPECT_EQ(misspelt->nearest, "D.Lan.Mtu.x");
    EXPECT_EQ(sentence_of(*misspelt), "is not described; is D.Lan.Mtu.x meant?");
    ASSERT_TRUE(check_value(set_, "D.Lan", "text"));
    EXPECT_FALSE(check_value(set_, "D.Lan", ""));
}

TEST_F(Directory, KeepsASecretToItself) {
    const auto wrong = check_value(set_, "D.Lan.Password", "geheim");
    ASSERT_TRUE(wrong);
    EXPECT_TRUE(wrong->secret);
    EXPECT_EQ(sentence_of(*wrong), "has to be a text of at most 3 characters");
}

TEST_F(Directory, ChecksAttributes) {
    EXPECT_FALSE(check_attribute(set_, "D.Lan", "Level", "5"));
    EXPECT_EQ(check_attribute(set_, "D.Lan", "Level", "x")->rule, std::string(rule::type));
    EXPECT_EQ(check_attribute(set_, "D.Lan", "Levl", "5")->nearest, "Level");
    EXPECT_TRUE(check_attribute(set_, "D.Lam", "Level", "5"));
}

TEST_F(Directory, TellsDefaults) {
    const auto defaults = defaults_of(*set_.document("D"));
    ASSERT_EQ(defaults.size(), 1U);
    EXPECT_EQ(defaults[0].path, "D.Lan.Mtu");
    EXPECT_EQ(defaults[0].value, "5");
}

}  // namespace
}  // namespace veltrancord::schema
