#include "update/write_lines.h"

#include <string>

#include "leaf/result.h"
#include "support/loaded_directory.h"
#include "update/lines.h"

namespace veltrancord {
namespace {

class ValueSetting : public LoadedDirectory {
  protected:
    void SetUp() override {
        LoadedDirectory::SetUp();
        load({{"Account", "<Account><User1 Level=\"3\"><Name>old</Name></User1></Account>"},
              {"Network", "<Network><Lan/></Network>"}});
    }
};

TEST_F(ValueSetting, SetsAnElementAndMarksItsDocumentOnly) {
    EXPECT_EQ(set_element_value("Account.User1.Name", "new", true), result_ok);
    EXPECT_EQ(value("Account.User1.Name"), "new");
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    EXPECT_EQ(flags("Network"), 0U);
}

TEST_F(ValueSetting, MarksAChangeInMemoryByItsOwnFlag) {
    EXPECT_EQ(set_element_value("Account.User1.Name", "new", false), result_ok);
    EXPECT_EQ(flags("Account"), DOC_SAVE_MEMORY);
    EXPECT_EQ(set_element_value("Account.User1.Name", "newer", true), result_ok);
    EXPECT_EQ(flags("Account"), DOC_SAVE_MEMORY | DOC_SAVE_FLASH);
}

TEST_F(ValueSetting, CreatesMissingElements) {
    EXPECT_EQ(set_element_value("Network.Wifi.SSID", "home", true), result_ok);
    EXPECT_EQ(value("Network.Wifi.SSID"), "home");
}

TEST_F(ValueSetting, AnEmptyValueIsAValue) {
    EXPECT_EQ(set_element_value("Account.User1.Name", "", true), result_ok);
    EXPECT_EQ(value("Account.User1.Name"), "");
}

TEST_F(ValueSetting, RefusesPathsThatDoNotSplit) {
    for (const char* path : {"", ".", "...."}) {
        EXPECT_EQ(set_element_value(path, "x", true), result_bad_argument);
        EXPECT_EQ(set_attribute_value(path, "x"), result_bad_argument);
    }
}

TEST_F(ValueSetting, RefusesDocumentsThatAreNotLoaded) {
    EXPECT_EQ(set_element_value("Missing.a", "x", true), result_not_found);
    EXPECT_EQ(set_element_value("account.User1.Name", "x", true), result_not_found);
    EXPECT_EQ(set_element_value("junk\nAccount.User1.Name", "x", true), result_not_found);
    EXPECT_EQ(set_attribute_value("Missing.a.b", "x"), result_not_found);
    EXPECT_EQ(flags("Account"), 0U);
}

TEST_F(ValueSetting, BoundsThePathOfALine) {
    const std::string longest = "Account." + std::string(max_line_path - 8, 'a');
    EXPECT_EQ(set_element_value(longest, "x", true), result_ok);
    EXPECT_EQ(value(longest.c_str()), "x");
    EXPECT_EQ(set_element_value(longest + "a", "x", true), result_bad_argument);
    EXPECT_EQ(value((longest + "a").c_str()), "(none)");
    const std::string attribute = "Account." + std::string(max_line_path - 8, 'b');
    EXPECT_EQ(set_attribute_value(attribute, "x"), result_ok);
    EXPECT_EQ(set_attribute_value(attribute + "b", "x"), result_bad_argument);
}

TEST_F(ValueSetting, BoundsTheValueOfALine) {
    const std::string longest(max_element_value, 'v');
    EXPECT_EQ(set_element_value("Account.User1.Name", longest, true), result_ok);
    EXPECT_EQ(set_element_value("Account.User1.Name", longest + "v", true), result_bad_argument);
    EXPECT_EQ(value("Account.User1.Name"), longest);
    const std::string attribute(max_attribute_value, 'v');
    EXPECT_EQ(set_attribute_value("Account.User1.Level", attribute), result_ok);
    EXPECT_EQ(set_attribute_value("Account.User1.Level", attribute + "v"), result_bad_argument);
    EXPECT_STREQ(FindXmlDoc("Account")->RootElement()->FirstChildElement()->Attribute("Level"),
                 attribute.c_str());
}

TEST_F(ValueSetting, StoresASecretEncodedWhateverTheCaseOfItsName) {
    for (const char* path : {"Account.User1.Password", "Account.User1.pAssword"}) {
        EXPECT_EQ(set_element_value(path, "topsecret", true), result_ok);
        EXPECT_EQ(document("Account").find("topsecret"), std::string::npos);
        EXPECT_EQ(value(path), "topsecret");
    }
    EXPECT_NE(document("Account").find("<pAssword>enc:9:"), std::string::npos);
}

TEST_F(ValueSetting, LeavesTheOldSecretWhereTheNewOneIsTooLong) {
    EXPECT_EQ(set_element_value("Account.User1.Password", "old", true), result_ok);
    FindXmlDocNode("Account")->saveFlags = 0;
    EXPECT_EQ(set_element_value("Account.User1.Password", std::string(200, 'x'), true),
              result_store_failed);
    EXPECT_EQ(value("Account.User1.Password"), "old");
    EXPECT_EQ(flags("Account"), 0U);
}

TEST_F(ValueSetting, ReplacesAndAddsAttributes) {
    EXPECT_EQ(set_attribute_value("Account.User1.Level", "5"), result_ok);
    EXPECT_EQ(set_attribute_value("Account.User1.Color", "red"), result_ok);
    EXPECT_EQ(set_attribute_value("Account.User1.level", "lower case is another one"), result_ok);
    const TiXmlElement* const user = FindXmlDoc("Account")->RootElement()->FirstChildElement();
    EXPECT_STREQ(user->Attribute("Level"), "5");
    EXPECT_STREQ(user->Attribute("Color"), "red");
    EXPECT_STREQ(user->Attribute("level"), "lower case is another one");
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    EXPECT_EQ(flags("Network"), 0U);
}

TEST_F(ValueSetting, AnAttributeMayBeEmpty) {
    EXPECT_EQ(set_attribute_value("Account.User1.Level", ""), result_ok);
    EXPECT_STREQ(FindXmlDoc("Account")->RootElement()->FirstChildElement()->Attribute("Level"), "");
}

TEST_F(ValueSetting, CreatesNoElementForAnAttribute) {
    const std::string before = document("Account");
    EXPECT_EQ(set_attribute_value("Account.User2.Level", "5"), result_store_failed);
    EXPECT_EQ(set_attribute_value("Account.User1.Name.Deeper.Level", "5"), result_store_failed);
    EXPECT_EQ(document("Account"), before);
    EXPECT_EQ(flags("Account"), 0U);
}

TEST_F(ValueSetting, ASingleComponentNamesAnAttributeOfTheRoot) {
    EXPECT_EQ(set_attribute_value("Account", "x"), result_ok);
    EXPECT_STREQ(FindXmlDoc("Account")->RootElement()->Attribute("Account"), "x");
}

TEST_F(ValueSetting, TakesTheFirstElementOfANameForAnAttribute) {
    FindXmlDoc("Network")->LoadXMLFile("<Network><Lan/><Lan><Port/></Lan></Network>");
    EXPECT_EQ(set_attribute_value("Network.Lan.Level", "1"), result_ok);
    EXPECT_EQ(set_attribute_value("Network.Lan.Port.Level", "1"), result_store_failed);
    EXPECT_NE(document("Network").find("<Lan Level=\"1\" />"), std::string::npos);
}

TEST_F(ValueSetting, EscapesNamesAsTheyAreStored) {
    EXPECT_EQ(set_element_value("Account.a b_c", "x", true), result_ok);
    EXPECT_NE(document("Account").find("<a_20b_5Fc>x</a_20b_5Fc>"), std::string::npos);
    EXPECT_EQ(set_attribute_value("Account.a b_c.d e", "y"), result_ok);
    EXPECT_NE(document("Account").find("<a_20b_5Fc d_20e=\"y\">"), std::string::npos);
}

TEST_F(ValueSetting, RefusesAttributesThatCouldNotBeReadBack) {
    load({{"Wifi", "<?xml version=\"1.0\"?><Wifi><Lan/></Wifi>"}});
    EXPECT_EQ(set_attribute_value("Wifi.Lan.1st", "x"), result_store_failed);
    EXPECT_EQ(set_attribute_value("Wifi.Lan.*", "x"), result_store_failed);
    EXPECT_EQ(set_attribute_value("Wifi.Lan.Note", "caf\xE9"), result_store_failed);
    EXPECT_EQ(flags("Wifi"), 0U);
    EXPECT_EQ(set_attribute_value("Wifi.Lan.Note", "caf\xC3\xA9"), result_ok);
}

}  // namespace
}  // namespace veltrancord
