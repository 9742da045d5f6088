#include "change_journal.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace veltrancord::bridge {
namespace {

class ChangeJournal : public testing::Test {
  protected:
    ChangeJournal() {
        std::string pattern = testing::TempDir() + "bridge-journal-XXXXXX";
        folder_ = mkdtemp(pattern.data());
    }
    ~ChangeJournal() override { std::filesystem::remove_all(folder_); }

    [[nodiscard]] change_journal journal() const {
        return {folder_ + "/flash", folder_ + "/memory"};
    }
    void write(const char* name, const std::string& text) const {
        std::ofstream(folder_ + "/" + name) << text;
    }

    std::string folder_;
};

TEST_F(ChangeJournal, IsEmptyAtFirst) {
    change_journal one = journal();
    EXPECT_TRUE(one.load());
    EXPECT_EQ(one.last().sequence, 0U);
    EXPECT_EQ(one.last().state, change_state::none);
}

TEST_F(ChangeJournal, KeepsWhatWasActedOn) {
    change_journal one = journal();
    ASSERT_TRUE(one.load());
    ASSERT_TRUE(one.note(17, "mtu-1"));
    one.set_state(change_state::trial, "", 4711);
    change_journal two = journal();
    ASSERT_TRUE(two.load());
    EXPECT_EQ(two.last().sequence, 17U);
    EXPECT_EQ(two.last().id, "mtu-1");
    EXPECT_EQ(two.last().state, change_state::trial);
    EXPECT_EQ(two.last().trial, 4711U);
    two.set_state(change_state::refused, "not on the list");
    ASSERT_TRUE(one.load());
    EXPECT_EQ(one.last().state, change_state::refused);
    EXPECT_EQ(one.last().reason, "not on the list");
}

TEST_F(ChangeJournal, DoesNotKnowTheEndAfterARestartOfTheDevice) {
    change_journal one = journal();
    ASSERT_TRUE(one.note(17, "mtu-1"));
    one.set_state(change_state::applied, "");
    std::filesystem::remove(folder_ + "/memory");
    ASSERT_TRUE(one.load());
    EXPECT_EQ(one.last().sequence, 17U);
    EXPECT_EQ(one.last().state, change_state::noted);
}

TEST_F(ChangeJournal, WritesToFlashOnceForEachChange) {
    change_journal one = journal();
    ASSERT_TRUE(one.note(17, "mtu-1"));
    struct stat before {};
    ASSERT_EQ(stat((folder_ + "/flash").c_str(), &before), 0);
    one.set_state(change_state::trial, "", 1);
    one.set_state(change_state::applied, "");
    struct stat after {};
    ASSERT_EQ(stat((folder_ + "/flash").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
}

TEST_F(ChangeJournal, DoesNotMixTwoChanges) {
    change_journal one = journal();
    ASSERT_TRUE(one.note(17, "mtu-1"));
    one.set_state(change_state::applied, "");
    ASSERT_TRUE(one.note(18, "mtu-2"));
    change_journal two = journal();
    ASSERT_TRUE(two.load());
    EXPECT_EQ(two.last().id, "mtu-2");
    EXPECT_EQ(two.last().state, change_state::noted);
}

TEST_F(ChangeJournal, ThatIsDamagedLetsNothingBeActedOn) {
    for (const char* const text : {"", "sequence=0\nid=a\n", "sequence=5\n", "id=a\n", "rubbish\n",
                                   "sequence=5\nid=a\nmore=1\n", "sequence=x\nid=a\n"}) {
        write("flash", text);
        change_journal one = journal();
        EXPECT_FALSE(one.load()) << text;
    }
    std::filesystem::remove(folder_ + "/flash");
    std::filesystem::create_directory(folder_ + "/flash");
    change_journal one = journal();
    EXPECT_FALSE(one.load());
    EXPECT_FALSE(one.note(1, "a"));
}

TEST_F(ChangeJournal, ThatCannotBeWrittenSaysSo) {
    change_journal one(folder_ + "/missing/flash", folder_ + "/memory");
    EXPECT_TRUE(one.load());
    EXPECT_FALSE(one.note(1, "a"));
    EXPECT_EQ(one.last().sequence, 0U);
}

}  // namespace
}  // namespace veltrancord::bridge
