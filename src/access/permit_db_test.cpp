#include "access/permit_db.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "leaf/result.h"
#include "support/account_document.h"

namespace veltrancord {
namespace {

namespace fs = std::filesystem;

class PermitDb : public testing::Test {
  protected:
    PermitDb() {
        std::string name = (fs::temp_directory_path() / "permit_db_XXXXXX").string();
        EXPECT_NE(::mkdtemp(name.data()), nullptr);
        directory_ = name;
        file_ = directory_ / "Permit.db";
    }
    ~PermitDb() override { fs::remove_all(directory_); }

    int32_t save() {
        testing::internal::CaptureStderr();
        const int32_t result = save_xml_to_file(permit_db_content, file_.c_str());
        printed_ = testing::internal::GetCapturedStderr();
        return result;
    }

    [[nodiscard]] std::string content() const {
        std::ifstream in(file_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    fs::path directory_;
    fs::path file_;
    std::string printed_;
};

TEST_F(PermitDb, HoldsTheListingOfThePermissionBranch) {
    const account_document account(
        "<User1><Username>root</Username></User1><Permission><MaxGroupNum>3</MaxGroupNum><Define>"
        "<Permit1 Type=\"Switch\">Network</Permit1></Define><Group1><Name>Admin</Name>"
        "<Permit1>YES</Permit1></Group1></Permission>");
    const std::string expected =
        "Account.Permission.MaxGroupNum=3\n"
        "Account.Permission.Define.Permit1=Network\n"
        "Account.Permission.Group1.Name=Admin\n"
        "Account.Permission.Group1.Permit1=YES\n";
    std::ofstream(file_) << std::string(4000, 'x');
    EXPECT_EQ(save(), static_cast<int32_t>(expected.size()));
    EXPECT_EQ(content(), expected);
    EXPECT_EQ(printed_, "");
}

TEST_F(PermitDb, StaysWhenThereIsNothingToWrite) {
    account_document account("<Permission/>");
    std::ofstream(file_) << "old";
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(printed_, "read xml error 0!!\n");
    account.replace("");
    EXPECT_EQ(save(), result_not_found);
    EXPECT_EQ(printed_, "read xml error -4!!\n");
    EXPECT_EQ(content(), "old");
}

TEST_F(PermitDb, TakesItsNameFromALinkAndLeavesWhatThatNames) {
    const account_document account("<Permission><MaxGroupNum>3</MaxGroupNum></Permission>");
    const fs::path other = directory_ / "other";
    std::ofstream(other) << "old";
    fs::create_symlink(other, file_);
    EXPECT_GT(save(), 0);
    EXPECT_EQ(printed_, "");
    EXPECT_FALSE(fs::is_symlink(file_));
    EXPECT_EQ(content(), "Account.Permission.MaxGroupNum=3\n");
    std::ifstream target(other);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(target), {}), "old");
}

}  // namespace
}  // namespace veltrancord
