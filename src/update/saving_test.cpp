#include "update/saving.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <array>
#include <csignal>
#include <cstring>
#include <functional>

#include "leaf/result.h"
#include "store/change.h"
#include "support/loaded_directory.h"
#include "update/documents.h"
#include "update/exchange_file.h"
#include "update/write_lines.h"

namespace veltrancord {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr char account[] = "<Account>\n    <Name>old</Name>\n</Account>";
constexpr char network[] = "<Network>\n    <Mode>old</Mode>\n</Network>";

class DocumentSaving : public LoadedDirectory {
  protected:
    void SetUp() override {
        LoadedDirectory::SetUp();
        load({{"Account", account}, {"Network", network}});
    }
    void TearDown() override {
        g_pendingSaves = {};
        LoadedDirectory::TearDown();
    }

    // Where a directory stands in the file's place, it cannot be replaced.
    void block(const char* name) const {
        std::filesystem::remove(config_ / name);
        std::filesystem::create_directory(config_ / name);
    }
    void unblock(const char* name) const { std::filesystem::remove(config_ / name); }

    [[nodiscard]] std::string line(const char* name, int error) const {
        return "replace_file " + (config_ / name).string() + " error : " + strerror(error) + "\n";
    }

    // Saves, and gives what was printed.
    static std::string save(int64_t now = 0) {
        CaptureStderr();
        save_changed_documents(now);
        return GetCapturedStderr();
    }
};

TEST_F(DocumentSaving, WritesAMarkedDocumentAndClearsItsFlags) {
    ASSERT_EQ(set_element_value("Account.Name", "memory", false), result_ok);
    ASSERT_EQ(set_element_value("Account.Other", "flash", true), result_ok);
    EXPECT_EQ(save(), "");
    EXPECT_EQ(file("Account"),
              "<Account>\n    <Name>memory</Name>\n    <Other>flash</Other>\n</Account>\n");
    EXPECT_EQ(flags("Account"), 0U);
}

TEST_F(DocumentSaving, TouchesNoOtherDocument) {
    const auto before = std::filesystem::last_write_time(config_ / "Network");
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    save();
    EXPECT_EQ(file("Network"), network);
    EXPECT_EQ(std::filesystem::last_write_time(config_ / "Network"), before);
}

TEST_F(DocumentSaving, LeavesAChangeInMemoryThere) {
    ASSERT_EQ(set_element_value("Account.Name", "new", false), result_ok);
    ASSERT_EQ(set_element_value("Network.Mode", "new", true), result_ok);
    save();
    EXPECT_EQ(file("Account"), account);
    EXPECT_EQ(flags("Account"), DOC_SAVE_MEMORY);
    EXPECT_NE(file("Network"), network);
}

TEST_F(DocumentSaving, DoesNothingWhileTheProcessIsTerminated) {
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    g_terminating = true;
    save();
    EXPECT_EQ(file("Account"), account);
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    EXPECT_EQ(save_memory_changes(), result_not_found);
    g_terminating = false;
    save();
    EXPECT_NE(file("Account"), account);
}

TEST_F(DocumentSaving, AFailedSaveIsTriedAgainAfterAChangeOrTenSeconds) {
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    ASSERT_EQ(set_element_value("Network.Mode", "new", true), result_ok);
    block("Account");
    EXPECT_EQ(save(100), line("Account", EISDIR));
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    EXPECT_EQ(flags("Network"), 0U);
    EXPECT_NE(file("Network"), network);
    EXPECT_EQ(save(100), "");  // as after a read
    EXPECT_EQ(save(109), "");
    EXPECT_EQ(save(110), line("Account", EISDIR));
    EXPECT_EQ(save(119), "");
    ASSERT_EQ(set_element_value("Network.Mode", "newer", false), result_ok);
    EXPECT_EQ(save(119), line("Account", EISDIR));
    EXPECT_EQ(save_memory_changes(), result_ok);
    unblock("Account");
    EXPECT_EQ(save(119), "");
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>new</Name>\n</Account>\n");
    EXPECT_EQ(flags("Account"), 0U);
}

TEST_F(DocumentSaving, AnUploadOrARemovalIsAChangeToo) {
    const std::string exchange = (base_ / "exchange").string();
    put(exchange, "<ROOT><Network/></ROOT>");
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    block("Account");
    EXPECT_EQ(save(100), line("Account", EISDIR));
    ASSERT_EQ(upload_documents(exchange), result_ok);
    EXPECT_EQ(save(100), line("Account", EISDIR));
    ASSERT_EQ(remove_setting("Network.*"), result_ok);
    EXPECT_EQ(save(100), line("Account", EISDIR));
    EXPECT_EQ(save(100), "");
}

TEST_F(DocumentSaving, KeepsTheOriginalOfADamagedFile) {
    FreeXmlDocs();
    const std::string damaged = "<Account><Name>old</Name><Rest>1</Rest><Acc";
    put(config_ / "Account", damaged);
    ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    const std::filesystem::path kept = config_ / ".veltrancord-kept.Account";
    std::filesystem::create_directory(kept);
    EXPECT_EQ(save(), "keep_original " + (config_ / "Account").string() +
                          " error : " + strerror(EISDIR) + "\n");
    EXPECT_EQ(file("Account"), damaged);
    EXPECT_EQ(flags("Account"), DOC_SAVE_FLASH);
    std::filesystem::remove(kept);
    EXPECT_EQ(save(save_retry_seconds), "");
    EXPECT_EQ(get(kept), damaged);
    EXPECT_EQ(file("Account"), document("Account"));
    ASSERT_EQ(set_element_value("Account.Name", "newer", true), result_ok);
    EXPECT_EQ(save(), "");
    EXPECT_EQ(get(kept), damaged);  // what was served in part is no original
    FreeXmlDocs();
    ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    EXPECT_EQ(loaded().size(), 2U);
    EXPECT_EQ(get(kept), damaged);
}

// The text of the last save is kept for the next: no change may pass it by.
TEST_F(DocumentSaving, SavesEveryKindOfChangeBehindEveryOther) {
    const std::string exchange = (base_ / "exchange").string();
    put(exchange, "<ROOT><Account><Merged>m</Merged><Name>merged</Name></Account></ROOT>");
    const std::array<std::function<int32_t()>, 7> changes = {
        [] { return set_element_value("Account.Name", "a", true); },
        [] { return set_element_value("Account.Name", "another", true); },
        [] { return set_element_value("Account.New.Part", "x", true); },
        [] { return set_attribute_value("Account.Name.Attribute", "y"); },
        [] { return remove_setting("Account.New"); },
        [&] { return sync_documents(exchange); },
        [] {
            return set_element_value("Network.Mode", "n", true) < 0
                       ? result_failed
                       : set_element_value("Account.Name", "<both>", true);
        },
    };
    for (const auto& first : changes) {
        for (const auto& second : changes) {
            ASSERT_EQ(set_element_value("Account.New.Part", "to be removed", true), result_ok);
            for (const auto* change : {&first, &second}) {
                static_cast<void>((*change)());
                EXPECT_EQ(save(), "");
                EXPECT_EQ(file("Account"), document("Account"));
            }
        }
    }
}

TEST_F(DocumentSaving, AChangeInMemoryOnlyIsInTheNextSave) {
    ASSERT_EQ(set_element_value("Account.Name", "first", true), result_ok);
    save();
    ASSERT_EQ(set_element_value("Account.Name", "memory", false), result_ok);
    save();
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>first</Name>\n</Account>\n");
    EXPECT_EQ(save_memory_changes(), result_ok);
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>memory</Name>\n</Account>\n");
}

TEST_F(DocumentSaving, AReplacedDocumentIsSavedAsItIs) {
    ASSERT_EQ(set_element_value("Account.Name", "first", true), result_ok);
    save();
    const std::string exchange = (base_ / "exchange").string();
    put(exchange, "<ROOT><Account><Name>uploaded</Name><Other/></Account></ROOT>");
    ASSERT_EQ(upload_documents(exchange), result_ok);
    ASSERT_EQ(set_element_value("Account.Name", "second", true), result_ok);
    save();
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>second</Name>\n    <Other />\n</Account>\n");
}

TEST_F(DocumentSaving, WritesNothingASecondTime) {
    ASSERT_EQ(set_element_value("Account.Name", "new", true), result_ok);
    save();
    put(config_ / "Account", "changed behind its back");
    save();
    EXPECT_EQ(file("Account"), "changed behind its back");
}

TEST_F(DocumentSaving, SyncingWritesChangesInMemoryOnly) {
    ASSERT_EQ(set_element_value("Account.Name", "new", false), result_ok);
    ASSERT_EQ(set_element_value("Network.Mode", "new", true), result_ok);
    EXPECT_EQ(save_memory_changes(), result_ok);
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>new</Name>\n</Account>\n");
    EXPECT_EQ(flags("Account"), 0U);
    EXPECT_EQ(file("Network"), network);
    EXPECT_EQ(flags("Network"), DOC_SAVE_FLASH);
}

TEST_F(DocumentSaving, AFailedSyncIsTriedAgainAsASave) {
    ASSERT_EQ(set_element_value("Account.Name", "new", false), result_ok);
    block("Account");
    CaptureStderr();
    EXPECT_EQ(save_memory_changes(), result_ok);
    EXPECT_EQ(GetCapturedStderr(), line("Account", EISDIR));
    EXPECT_EQ(flags("Account"), DOC_SAVE_MEMORY | DOC_SAVE_FLASH);
    unblock("Account");
    EXPECT_EQ(save(), "");
    EXPECT_EQ(file("Account"), "<Account>\n    <Name>new</Name>\n</Account>\n");
}

TEST_F(DocumentSaving, AnEmptySetHasNothingToSync) {
    FreeXmlDocs();
    EXPECT_EQ(save_memory_changes(), result_not_found);
    EXPECT_EQ(save(), "");
}

TEST_F(DocumentSaving, KeepsTheOldFileWhenTheNewOneHasNoRoom) {
    const auto run_out_of_room = [this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0 ||
            set_element_value("Account.Name", std::string(2000, 'x'), true) != result_ok) {
            _exit(1);
        }
        save_changed_documents();
        _exit(file("Account") == account && flags("Account") == DOC_SAVE_FLASH &&
                      names(config_).size() == 2
                  ? 0
                  : 2);
    };
    EXPECT_EXIT(run_out_of_room(), ::testing::ExitedWithCode(0), strerror(EFBIG));
}

}  // namespace
}  // namespace veltrancord
