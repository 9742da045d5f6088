#include "leaf/owned_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace veltrancord {
namespace {

int open_null() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool is_open(int fd) {
    return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(OwnedFd, HoldsNothingAtFirst) {
    const owned_fd empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.get(), -1);
}

TEST(OwnedFd, CountsDescriptor0AsOne) {
    owned_fd zero(0);
    EXPECT_TRUE(zero);
    EXPECT_EQ(zero.release(), 0);
}

TEST(OwnedFd, ClosesInTheDestructor) {
    const int fd = open_null();
    {
        const owned_fd owner(fd);
        EXPECT_TRUE(is_open(fd));
    }
    EXPECT_FALSE(is_open(fd));
}

TEST(OwnedFd, GivesItsDescriptorToTheOneItIsMovedTo) {
    owned_fd first(open_null());
    const int fd = first.get();
    owned_fd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
    EXPECT_EQ(first.get(), -1);  // NOLINT(bugprone-use-after-move): an empty owner is the promise
    EXPECT_TRUE(is_open(fd));
}

TEST(OwnedFd, ClosesWhatItHeldWhenAnotherIsMovedIn) {
    owned_fd first(open_null());
    owned_fd second(open_null());
    const int old = second.get();
    const int kept = first.get();
    second = std::move(first);
    EXPECT_FALSE(is_open(old));
    EXPECT_TRUE(is_open(kept));
    EXPECT_EQ(second.get(), kept);
}

TEST(OwnedFd, SurvivesBeingMovedToItself) {
    owned_fd owner(open_null());
    owned_fd& same = owner;
    owner = std::move(same);
    EXPECT_TRUE(is_open(owner.get()));
}

TEST(OwnedFd, GivesAwayWithoutClosing) {
    owned_fd owner(open_null());
    const int fd = owner.release();
    EXPECT_FALSE(owner);
    EXPECT_TRUE(is_open(fd));
    ::close(fd);
}

TEST(OwnedFd, LeavesErrnoAlone) {
    {
        owned_fd owner(open_null());
        ::close(owner.get());  // so that the owner's own close fails
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(OwnedFd, TellsACloseThatFailed) {
    owned_fd owner(open_null());
    ::close(owner.get());
    EXPECT_EQ(owner.close(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(owner);
}

TEST(OwnedFd, ClosesNothingWhenEmpty) {
    owned_fd empty;
    EXPECT_EQ(empty.close(), 0);
}

}  // namespace
}  // namespace veltrancord
