// The sample configuration is what examples/README.md says it is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "encoding/secret.h"

namespace veltrancord {
namespace {

class SampleDatabase : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        document_.SetValue(GetParam().c_str());
        document_.Parse(bytes().c_str());
        ASSERT_FALSE(document_.Error()) << document_.ErrorDesc();
    }

    static std::string bytes() {
        std::ifstream file(std::filesystem::path(VELTRANCORD_SAMPLE_DATABASE) / GetParam());
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void for_each_element(const TiXmlElement& element,
                                 const std::function<void(const TiXmlElement&)>& visit) {
        visit(element);
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            for_each_element(*child, visit);
        }
    }

    static int levels(const TiXmlElement& element) {
        int deepest = 0;
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            deepest = std::max(deepest, levels(*child));
        }
        return deepest + 1;
    }

    TiXmlDocument document_;
};

// A setting is addressed by the file's name and the root element's at once.
TEST_P(SampleDatabase, RootElementIsNamedLikeTheFile) {
    ASSERT_NE(document_.RootElement(), nullptr);
    EXPECT_EQ(document_.RootElement()->ValueStr(), GetParam());
    EXPECT_EQ(document_.FirstChild(), document_.RootElement());
    EXPECT_EQ(document_.RootElement()->NextSibling(), nullptr);
    EXPECT_THAT(GetParam(), testing::Not(testing::HasSubstr(".")));
}

// Saving one changed value must change one line of the file.
TEST_P(SampleDatabase, FileHasTheBytesThatSavingGives) {
    const std::string saved = testing::TempDir() + "sample_database_" + GetParam();
    ASSERT_TRUE(document_.SaveFile(saved.c_str()));
    std::ifstream file(saved);
    const std::string again{std::istreambuf_iterator<char>(file), {}};
    std::filesystem::remove(saved);
    EXPECT_EQ(again, bytes());
}

TEST_P(SampleDatabase, IsTwoToSixLevelsDeep) {
    EXPECT_THAT(levels(*document_.RootElement()), testing::AllOf(testing::Ge(2), testing::Le(6)));
}

// A setting either has a text or has settings below it; of two of one name the second is lost.
TEST_P(SampleDatabase, EverySettingCanBeAddressed) {
    for_each_element(*document_.RootElement(), [](const TiXmlElement& element) {
        std::set<std::string> names;
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            EXPECT_TRUE(names.insert(child->ValueStr()).second) << child->ValueStr();
        }
        EXPECT_TRUE(names.empty() || element.GetText() == nullptr) << element.ValueStr();
    });
}

TEST_P(SampleDatabase, PasswordsReadBackWithTheDefaultKey) {
    for_each_element(*document_.RootElement(), [](const TiXmlElement& element) {
        if (element.ValueStr() != "Password" || element.GetText() == nullptr) {
            return;
        }
        const std::string stored = element.GetText();
        EXPECT_THAT(stored, testing::MatchesRegex("enc:[0-9]+:[A-Za-z0-9+/]+=*"));
        std::array<char, secret_text_size> plain{};
        ASSERT_EQ(enc_value_decode(stored, plain), 0) << stored;
        const std::string text = plain.data();
        EXPECT_EQ(std::to_string(text.size()), stored.substr(4, stored.find(':', 4) - 4));
        EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) {
            return c >= ' ' && c <= '~';
        })) << stored;
    });
}

std::vector<std::string> documents() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(VELTRANCORD_SAMPLE_DATABASE)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Documents, SampleDatabase, testing::ValuesIn(documents()),
                         [](const auto& instance) { return instance.param; });

TEST(SampleAccounts, EveryUserBelongsToAGroupAndEveryRuleToAPermit) {
    TiXmlDocument account;
    ASSERT_TRUE(account.LoadFile(std::string(VELTRANCORD_SAMPLE_DATABASE "/Account")));
    const TiXmlHandle root(account.RootElement());
    std::set<std::string> permits;
    std::set<std::string> groups;
    for (const TiXmlElement* permit =
             root.FirstChild("Permission").FirstChild("Define").FirstChildElement().ToElement();
         permit != nullptr; permit = permit->NextSiblingElement()) {
        permits.insert(permit->ValueStr());
        EXPECT_THAT(permit->Attribute("Type"),
                    testing::AnyOf(testing::StrEq("Switch"), testing::StrEq("Channel")));
    }
    for (const TiXmlElement* group = root.FirstChild("Permission").FirstChildElement().ToElement();
         group != nullptr; group = group->NextSiblingElement()) {
        if (const TiXmlElement* name = group->FirstChildElement("Name")) {
            groups.insert(name->GetText());
        }
    }
    EXPECT_THAT(permits, testing::SizeIs(17));
    EXPECT_THAT(groups, testing::Contains("POWER USER"));

    int users = 0;
    for (const TiXmlElement* user = root.FirstChildElement().ToElement(); user != nullptr;
         user = user->NextSiblingElement()) {
        if (user->ValueStr().starts_with("User")) {
            ++users;
            EXPECT_THAT(groups, testing::Contains(user->FirstChildElement("Level")->GetText()));
        }
    }
    EXPECT_EQ(users, 4);
    int rules = 0;
    for (const TiXmlElement* rule =
             root.FirstChild("CGIPermitDenyFilter").FirstChildElement().ToElement();
         rule != nullptr; rule = rule->NextSiblingElement()) {
        ++rules;
        EXPECT_EQ(rule->ValueStr(), "R" + std::to_string(rules));
        EXPECT_THAT(permits,
                    testing::Contains(rule->FirstChildElement("RelatedPermit")->GetText()));
    }
    EXPECT_EQ(rules, 9);
}

}  // namespace
}  // namespace veltrancord
