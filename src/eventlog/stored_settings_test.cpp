#include "eventlog/stored_settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "store/document_set.h"

namespace veltrancord {
namespace {

class StoredSettings : public testing::Test {
  protected:
    ~StoredSettings() override { FreeXmlDocs(); }

    static void load(const std::string& definitions) {
        auto document = std::make_unique<XmlDocument>("Notification");
        document->LoadXMLFile(
            ("<Notification><Log><BitDefine>" + definitions + "</BitDefine></Log></Notification>")
                .c_str());
        AddXmlDocNode("Notification", "/nowhere", std::move(document));
    }

    stored_notification_settings settings_;
    using numbers = std::vector<int32_t>;
};

TEST_F(StoredSettings, ValuesComeFromTheStore) {
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Num"), "");
    load("<Num>2</Num><Def1><Bit>0x1</Bit><Name>Door</Name></Def1><Def2/>");
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Num"), "2");
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Def1.Name"), "Door");
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Def2"), "");
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Def3.Name"), "");
    EXPECT_EQ(settings_.value(""), "");
}

TEST_F(StoredSettings, DefinitionsAreThoseThatExistUpToTheirNumber) {
    EXPECT_EQ(settings_.definitions(9), (numbers{}));
    load("<Def3/><Num>9</Num><Def1/><Def3/><Def10/><Def2>x</Def2>");
    EXPECT_EQ(settings_.definitions(9), (numbers{1, 2, 3}));
    EXPECT_EQ(settings_.definitions(10), (numbers{1, 2, 3, 10}));
    EXPECT_EQ(settings_.definitions(2), (numbers{1, 2}));
    EXPECT_EQ(settings_.definitions(0), (numbers{}));
    EXPECT_EQ(settings_.definitions(-1), (numbers{}));
    EXPECT_EQ(settings_.definitions(INT32_MAX), (numbers{1, 2, 3, 10}));
}

TEST_F(StoredSettings, NamesThatNoNumberIsWrittenAsAreNoDefinitions) {
    load("<Def/><Def0/><Def01/><Def-1/><Def1x/><def2/><Def99999999999/><DefDef1/>");
    EXPECT_EQ(settings_.definitions(INT32_MAX), (numbers{}));
}

TEST_F(StoredSettings, DefinitionsAreFoundWhereverALookUpMayBacktrack) {
    auto document = std::make_unique<XmlDocument>("Notification");
    document->LoadXMLFile(
        "<Notification><Log/><Log><BitDefine><Def1/></BitDefine><BitDefine><Def2><Bit>0x2</Bit>"
        "</Def2></BitDefine></Log></Notification><Notification><Log><BitDefine><Def3/></BitDefine>"
        "</Log></Notification>");
    AddXmlDocNode("Notification", "/nowhere", std::move(document));
    EXPECT_EQ(settings_.value("Notification.Log.BitDefine.Def2.Bit"), "0x2");
    EXPECT_EQ(settings_.definitions(9), (numbers{1, 2, 3}));
}

TEST_F(StoredSettings, AnAbsurdNumberOfDefinitionsCostsNothing) {
    load("<Num>2147483647</Num><Def1><Bit>0x1</Bit></Def1>");
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(should_notify(1, settings_));
        EXPECT_TRUE(should_notify(2, settings_));
    }
}

class NumberFile : public testing::Test {
  protected:
    NumberFile() {
        std::string name = testing::TempDir() + "gate-XXXXXX";
        directory_ = ::mkdtemp(name.data());
        path_ = directory_ + "/gate";
    }
    ~NumberFile() override { std::filesystem::remove_all(directory_); }

    int32_t number_of(const std::string& text) {
        std::ofstream(path_) << text;
        return read_number_file(path_.c_str());
    }

    std::string directory_;
    std::string path_;
};

TEST_F(NumberFile, BeginsWithADecimalNumber) {
    EXPECT_EQ(number_of("1"), 1);
    EXPECT_EQ(number_of("0\n"), 0);
    EXPECT_EQ(number_of(" \n\t+12 and more"), 12);
    EXPECT_EQ(number_of("-3"), -3);
    EXPECT_EQ(number_of("99999999999"), INT32_MAX);
    EXPECT_EQ(number_of("garbage 1"), 0);
    EXPECT_EQ(number_of(""), 0);
}

TEST_F(NumberFile, IsZeroWhereItCannotBeRead) {
    EXPECT_EQ(read_number_file(path_.c_str()), 0);
    ASSERT_EQ(::mkdir(path_.c_str(), 0755), 0);
    EXPECT_EQ(read_number_file(path_.c_str()), 0);
}

TEST_F(NumberFile, IsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0644), 0);
    EXPECT_EQ(read_number_file(path_.c_str()), 0);
}

}  // namespace
}  // namespace veltrancord
