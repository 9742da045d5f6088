#include "guard/credentials.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

class Credentials : public testing::Test {
  protected:
    Credentials() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        one_.reset(ends[0]);
        other_.reset(ends[1]);
    }

    owned_fd one_;
    owned_fd other_;
    peer_credentials peer_;
};

TEST_F(Credentials, AreThePeers) {
    ASSERT_TRUE(read_credentials(one_.get(), {}, peer_));
    EXPECT_EQ(peer_.user, ::geteuid());
    EXPECT_EQ(peer_.group, ::getegid());
    EXPECT_EQ(peer_.process, ::getpid());
    EXPECT_TRUE(peer_.user_known && peer_.group_known);
    EXPECT_FALSE(peer_.identity().groups_known) << "they have not been asked for";
    read_groups(one_.get(), {}, peer_);
    EXPECT_TRUE(peer_.identity().groups_known);
    std::vector<gid_t> own(static_cast<std::size_t>(::getgroups(0, nullptr)));
    ASSERT_GE(::getgroups(static_cast<int>(own.size()), own.data()), 0);
    EXPECT_TRUE(
        std::is_permutation(own.begin(), own.end(), peer_.groups.begin(), peer_.groups.end()));
}

TEST_F(Credentials, OfWhoHasNoNumberHereAreNotKnown) {
    const overflow_ids overflow{::geteuid(), ::getegid()};
    ASSERT_TRUE(read_credentials(one_.get(), overflow, peer_));
    read_groups(one_.get(), overflow, peer_);
    EXPECT_FALSE(peer_.identity().user_known);
    EXPECT_FALSE(peer_.identity().groups_known);
    EXPECT_EQ(peer_.identity().user, no_id);
    EXPECT_EQ(peer_.identity().group, no_id);
    EXPECT_EQ(std::count(peer_.groups.begin(), peer_.groups.end(), ::getegid()), 0);
}

TEST_F(Credentials, AreThoseOfNoFile) {
    const owned_fd file(::dup(STDERR_FILENO));
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    const owned_fd reader(ends[0]);
    const owned_fd writer(ends[1]);
    EXPECT_FALSE(read_credentials(reader.get(), {}, peer_));
    read_groups(reader.get(), {}, peer_);
    EXPECT_FALSE(peer_.groups_known);
}

TEST(ProgramName, IsThatOfTheProcess) {
    std::string own;  // "guard_test", unless something runs the tests under a name of its own
    std::getline(std::ifstream("/proc/self/comm"), own);
    EXPECT_EQ(name_of_program(::getpid()).text, own);
    EXPECT_STREQ(name_of_program(0).text, "?");
}

}  // namespace
}  // namespace veltrancord
