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

TEST(owned_fd, holds_nothing_at_first) {
    const owned_fd empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.get(), -1);
}

TEST(owned_fd, counts_descriptor_0_as_one) {
    owned_fd zero(0);
    EXPECT_TRUE(zero);
    EXPECT_EQ(zero.release(), 0);
}

TEST(owned_fd, closes_in_the_destructor) {
    const int fd = open_null();
    {
        const owned_fd owner(fd);
        EXPECT_TRUE(is_open(fd));
    }
    EXPECT_FALSE(is_open(fd));
}

TEST(owned_fd, gives_its_descriptor_to_the_one_it_is_moved_to) {
    owned_fd first(open_null());
    const int fd = first.get();
    owned_fd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
    EXPECT_EQ(first.get(), -1);  // NOLINT(bugprone-use-after-move): an empty owner is the promise
    EXPECT_TRUE(is_open(fd));
}

TEST(owned_fd, closes_what_it_held_when_another_is_moved_in) {
    owned_fd first(open_null());
    owned_fd second(open_null());
    const int old = second.get();
    const int kept = first.get();
    second = std::move(first);
    EXPECT_FALSE(is_open(old));
    EXPECT_TRUE(is_open(kept));
    EXPECT_EQ(second.get(), kept);
}

TEST(owned_fd, survives_being_moved_to_itself) {
    owned_fd owner(open_null());
    owned_fd& same = owner;
    owner = std::move(same);
    EXPECT_TRUE(is_open(owner.get()));
}

TEST(owned_fd, gives_away_without_closing) {
    owned_fd owner(open_null());
    const int fd = owner.release();
    EXPECT_FALSE(owner);
    EXPECT_TRUE(is_open(fd));
    ::close(fd);
}

TEST(owned_fd, leaves_errno_alone) {
    {
        owned_fd owner(open_null());
        ::close(owner.get());  // so that the owner's own close fails
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(owned_fd, tells_a_close_that_failed) {
    owned_fd owner(open_null());
    ::close(owner.get());
    EXPECT_EQ(owner.close(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(owner);
}

TEST(owned_fd, closes_nothing_when_empty) {
    owned_fd empty;
    EXPECT_EQ(empty.close(), 0);
}

}  // namespace
}  // namespace veltrancord
