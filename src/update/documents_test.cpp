#include "update/documents.h"

#include <cerrno>
#include <cstring>

#include "leaf/result.h"
#include "support/loaded_directory.h"
#include "update/handlers.h"
#include "update/saving.h"

namespace veltrancord {
namespace {

using texts = std::vector<std::string>;

class DocumentRemoval : public LoadedDirectory {
  protected:
    void SetUp() override {
        LoadedDirectory::SetUp();
        load({{"Account", "<Account><User1><Name>x</Name></User1><Empty/></Account>"},
              {"Network", "<Network><Mode>y</Mode></Network>"}});
    }
};

TEST_F(DocumentRemoval, RemovesAnElementAndSavesItsDocument) {
    EXPECT_EQ(remove_setting("Account.User1"), result_ok);
    EXPECT_EQ(document("Account"), "<Account>\n    <Empty />\n</Account>\n");
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    EXPECT_EQ(flags("Network"), 0U);
    save_changed_documents();
    EXPECT_EQ(file("Account"), "<Account>\n    <Empty />\n</Account>\n");
}

TEST_F(DocumentRemoval, LeavesAFinalWildcardOut) {
    EXPECT_EQ(remove_setting("Account.User1.*"), result_ok);
    EXPECT_EQ(document("Account"), "<Account>\n    <Empty />\n</Account>\n");
}

TEST_F(DocumentRemoval, CutsOneFinalLineFeedOff) {
    EXPECT_EQ(remove_setting("Account.User1\n"), result_ok);
    EXPECT_EQ(remove_setting("Account.Empty\n\n"), result_not_found);
    EXPECT_EQ(remove_setting("Network.*\n"), result_ok);
    EXPECT_EQ(loaded(), texts{"Account"});
}

TEST_F(DocumentRemoval, RemovesADocumentWithItsFile) {
    EXPECT_EQ(remove_setting("Account.*"), result_ok);
    EXPECT_EQ(loaded(), texts{"Network"});
    EXPECT_EQ(names(config_), texts{"Network"});
    EXPECT_EQ(remove_setting("Account.*"), result_not_found);
}

TEST_F(DocumentRemoval, RemovesEverything) {
    EXPECT_EQ(remove_setting(".*"), result_ok);
    EXPECT_EQ(g_xmlDocList, nullptr);
    EXPECT_TRUE(names(config_).empty());
    EXPECT_EQ(remove_setting(".*\n"), result_ok);
    EXPECT_EQ(save_memory_changes(), result_not_found);
}

TEST_F(DocumentRemoval, RemovesExactlyThatFile) {
    // What a shell would make of this name is none of its business.
    put(config_ / "a b;x", "<a/>");
    put(config_ / "a", "keep");
    put(config_ / "b;x", "keep");
    AddXmlDocNode("a_20b_3Bx", (config_ / "a b;x").string(), std::make_unique<XmlDocument>("a"));
    EXPECT_EQ(remove_setting("a b;x.*"), result_not_found);  // names its document's root
    EXPECT_EQ(remove_setting(".*"), result_ok);
    EXPECT_EQ(names(config_), (texts{"a", "b;x"}));
}

TEST_F(DocumentRemoval, SaysSoWhereTheFileStays) {
    std::filesystem::remove(config_ / "Account");
    std::filesystem::create_directory(config_ / "Account");
    testing::internal::CaptureStderr();
    EXPECT_EQ(remove_setting("Account.*"), result_ok);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "remove_document " +
                                                          (config_ / "Account").string() +
                                                          " error : " + strerror(EISDIR) + "\n");
    EXPECT_EQ(loaded(), texts{"Network"});
}

TEST_F(DocumentRemoval, ForgetsADocumentWhoseFileIsGone) {
    std::filesystem::remove(config_ / "Account");
    testing::internal::CaptureStderr();
    EXPECT_EQ(remove_setting("Account.*"), result_ok);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(loaded(), texts{"Network"});
}

TEST_F(DocumentRemoval, RemovesTheRootElementOfAPathOfOneComponent) {
    EXPECT_EQ(remove_setting("Network"), result_ok);
    EXPECT_EQ(document("Network"), "");
    EXPECT_EQ(flags("Network"), DOC_SAVE_FLASH);
}

TEST_F(DocumentRemoval, FindsNothing) {
    for (const char* path : {"Missing", "Missing.*", "Missing.a", "Account.Missing",
                             "Account.User1.Missing.*", "*", "account.User1"}) {
        EXPECT_EQ(remove_setting(path), result_not_found) << path;
    }
    EXPECT_EQ(flags("Account"), 0U);
    EXPECT_EQ(loaded().size(), 2U);
}

TEST_F(DocumentRemoval, RefusesAPathThatDoesNotSplit) {
    EXPECT_EQ(run(remove_handle, ""), result_bad_argument);
    EXPECT_EQ(run(remove_handle, "..."), result_bad_argument);
    EXPECT_EQ(run(remove_handle, "\n"), result_bad_argument);
    EXPECT_EQ(remove_handle(connection_, {}, 0), result_bad_argument);
}

TEST_F(DocumentRemoval, DoesNotCountAsAChangeToBackUp) {
    EXPECT_EQ(run(remove_handle, "Account.User1"), result_ok);
    EXPECT_EQ(change_counter_, 0U);
}

}  // namespace
}  // namespace veltrancord
