#include "guard/policy_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace veltrancord {
namespace {

namespace fs = std::filesystem;

constexpr uid_t somebody = 54321;

class PolicyFile : public testing::Test {
  protected:
    PolicyFile() {
        char name[] = "/tmp/policy_file-XXXXXX";
        top_ = ::mkdtemp(name);
        ::chmod(top_.c_str(), 0755);
        fs::create_directory(top_ / "etc");
        file_ = top_ / "etc/access";
    }
    ~PolicyFile() override { fs::remove_all(top_); }

    void write(const std::string& text) const { std::ofstream(file_) << text; }
    [[nodiscard]] policy_reading read(uid_t own_user = ::geteuid()) const {
        return read_policy_file(file_.c_str(), own_user, system_accounts());
    }
    // Why it is not obeyed.
    [[nodiscard]] std::string objection() const {
        const policy_reading reading = read();
        EXPECT_EQ(reading.state, policy_state::bad);
        EXPECT_TRUE(reading.policy.rules.empty());
        return reading.mistakes.size() == 1 && reading.mistakes[0].line == 0
                   ? reading.mistakes[0].text
                   : "something else";
    }

    fs::path top_;
    fs::path file_;
};

TEST_F(PolicyFile, NeedNotBeThere) {
    EXPECT_EQ(read().state, policy_state::absent);
    fs::remove_all(top_ / "etc");
    EXPECT_EQ(read().state, policy_state::absent);
    fs::create_directory_symlink(top_ / "nowhere", top_ / "etc");
    EXPECT_EQ(read().state, policy_state::absent);
}

TEST_F(PolicyFile, IsReadWhole) {
    write("mode enforce\nallow user root all\n");
    const policy_reading reading = read();
    EXPECT_EQ(reading.state, policy_state::good);
    ASSERT_EQ(reading.policy.rules.size(), 1U);
    EXPECT_EQ(reading.policy.rules[0].line, 2U);
}

TEST_F(PolicyFile, MayBeEmpty) {
    write("");
    EXPECT_EQ(read().state, policy_state::good);
}

TEST_F(PolicyFile, WithAMistakeIsBad) {
    write("allow user root all\nsurprise\n");
    const policy_reading reading = read();
    EXPECT_EQ(reading.state, policy_state::bad);
    ASSERT_EQ(reading.mistakes.size(), 1U);
    EXPECT_EQ(reading.mistakes[0].line, 2U);
}

TEST_F(PolicyFile, IsNotReadBeyondItsBound) {
    write(std::string(max_policy_size + 1, '\n'));
    EXPECT_EQ(objection(), "is over 65536 bytes long");
}

TEST_F(PolicyFile, ThatOthersMayWriteToIsNotObeyed) {
    write("allow any all\n");
    for (const mode_t mode : {0664U, 0646U, 0666U}) {
        ASSERT_EQ(::chmod(file_.c_str(), mode), 0);
        EXPECT_EQ(objection(), "is not obeyed: " + file_.string() + " may be changed by others");
    }
}

TEST_F(PolicyFile, InADirectoryThatOthersMayWriteToIsNotObeyed) {
    write("allow any all\n");
    for (const mode_t mode : {0775U, 0757U}) {
        ASSERT_EQ(::chmod((top_ / "etc").c_str(), mode), 0);
        EXPECT_EQ(objection(), "is not obeyed: " + file_.string() +
                                   " lies in a directory that others may write to");
    }
}

TEST_F(PolicyFile, OfSomebodyElseIsNotObeyed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    write("allow any all\n");
    ASSERT_EQ(::chown(file_.c_str(), somebody, somebody), 0);
    EXPECT_EQ(objection(), "is not obeyed: " + file_.string() + " belongs to another user");
    EXPECT_EQ(read(somebody).state, policy_state::good) << "the service's own user";
    ASSERT_EQ(::chown(file_.c_str(), 0, 0), 0);
    ASSERT_EQ(::chown((top_ / "etc").c_str(), somebody, somebody), 0);
    EXPECT_EQ(objection(),
              "is not obeyed: " + (top_ / "etc").string() + " belongs to another user");
}

TEST_F(PolicyFile, ThatIsALinkIsNotObeyed) {
    std::ofstream(top_ / "planted") << "allow any all\n";
    fs::create_symlink(top_ / "planted", file_);
    EXPECT_EQ(objection(), "is not obeyed: it is a link");
    fs::remove(top_ / "planted");
    EXPECT_EQ(objection(), "is not obeyed: it is a link") << "it leads nowhere";
}

TEST_F(PolicyFile, ThatIsNoRegularFileIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
    EXPECT_EQ(objection(), "is not obeyed: it is no regular file");
    fs::remove(file_);
    fs::create_directory(file_);
    EXPECT_EQ(objection(), "is not obeyed: it is no regular file");
}

}  // namespace
}  // namespace veltrancord
