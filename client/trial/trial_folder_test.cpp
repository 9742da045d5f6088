#include "trial/trial_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace veltrancord::trial {
namespace {

namespace fs = std::filesystem;

class TrialFolder : public testing::Test {
  protected:
    TrialFolder() {
        char name[] = "/tmp/trial-XXXXXX";
        top_ = mkdtemp(name);
        place_ = top_ + "/trials";
    }
    ~TrialFolder() override { fs::remove_all(top_); }

    std::string top_;
    std::string place_;
};

TEST_F(TrialFolder, IsMadeForWhoNamesIt) {
    trial_folder folder;
    ASSERT_TRUE(folder.open(place_));
    struct stat status {};
    ASSERT_EQ(stat(place_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & S_IRWXO, 0U);
    EXPECT_EQ(folder.look().how_far, phase::none);
    EXPECT_FALSE(folder.is_guarded());
}

TEST_F(TrialFolder, IsRefusedWhereEverybodyMayWrite) {
    ASSERT_EQ(mkdir(place_.c_str(), 0700), 0);
    ASSERT_EQ(chmod(place_.c_str(), 0707), 0);
    trial_folder folder;
    EXPECT_FALSE(folder.open(place_));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(TrialFolder, IsNoLinkToOne) {
    ASSERT_EQ(mkdir(place_.c_str(), 0700), 0);
    fs::create_directory_symlink(place_, top_ + "/link");
    trial_folder folder;
    EXPECT_FALSE(folder.open(top_ + "/link"));
}

TEST_F(TrialFolder, KeepsAJournalThroughItsPhases) {
    trial_folder folder;
    ASSERT_TRUE(folder.open(place_) && folder.lock(0));
    const mode_t before = umask(0);
    ASSERT_TRUE(folder.put_journal("one\n"));
    umask(before);
    const trial_folder::found first = folder.look();
    EXPECT_EQ(first.how_far, phase::waiting);
    struct stat status {};
    ASSERT_EQ(stat((place_ + "/trial").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(first.journal, status.st_ino);
    ASSERT_TRUE(folder.set_phase(phase::waiting, phase::keeping));
    EXPECT_EQ(folder.look().how_far, phase::keeping);
    EXPECT_EQ(folder.look().journal, first.journal);
    std::string text;
    ASSERT_TRUE(folder.read_journal(phase::keeping, text));
    EXPECT_EQ(text, "one\n");
    EXPECT_EQ(folder.how_ended(first.journal), ending::unknown);
    ASSERT_TRUE(folder.end(phase::keeping, ending::kept));
    EXPECT_EQ(folder.look().how_far, phase::none);
    EXPECT_EQ(folder.how_ended(first.journal), ending::kept);
    EXPECT_EQ(folder.how_ended(first.journal + 1), ending::unknown);
}

TEST_F(TrialFolder, FollowsNoLinkThatIsAJournalOrALock) {
    trial_folder folder;
    ASSERT_TRUE(folder.open(place_));
    std::ofstream(top_ + "/else") << "secret";
    fs::create_symlink(top_ + "/else", place_ + "/trial");
    fs::create_symlink(top_ + "/else", place_ + "/lock");
    EXPECT_EQ(folder.look().how_far, phase::none);
    std::string text;
    EXPECT_FALSE(folder.read_journal(phase::waiting, text));
    EXPECT_FALSE(folder.lock(0));
}

TEST_F(TrialFolder, HasOneThatIsAtWorkAndOneGuard) {
    trial_folder one;
    trial_folder other;
    ASSERT_TRUE(one.open(place_) && other.open(place_));
    ASSERT_TRUE(one.lock(0));
    EXPECT_FALSE(other.lock(0));
    EXPECT_EQ(errno, EAGAIN);
    one.unlock();
    EXPECT_TRUE(other.lock(0));
    ASSERT_TRUE(one.become_guard());
    EXPECT_TRUE(other.is_guarded());
    EXPECT_FALSE(one.lock(0));  // that lock is another one
}

TEST_F(TrialFolder, LendsNoDescriptorToPrograms) {
    trial_folder folder;
    ASSERT_TRUE(folder.open(place_) && folder.lock(0) && folder.become_guard());
    ASSERT_TRUE(folder.put_journal("one\n"));
    const owned_fd held = folder.hold_journal(phase::waiting);
    ASSERT_TRUE(held);
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone).string().starts_with(top_)) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << entry.path();
        }
    }
}

}  // namespace
}  // namespace veltrancord::trial
