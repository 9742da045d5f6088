#include "leaf/whole_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "leaf/owned_fd.h"

namespace veltrancord {
namespace {

struct pipe_ends {
    owned_fd out;
    owned_fd in;
    pipe_ends() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
};

TEST(WholeIo, CarriesMoreThanOneCallTakes) {
    pipe_ends ends;
    const std::string sent(500000, 'x');  // more than a pipe holds
    std::string received(sent.size() + 1, '\0');
    std::thread writer([&] {
        EXPECT_TRUE(write_whole(ends.in.get(), sent));
        ends.in.reset();
    });
    EXPECT_EQ(read_whole(ends.out.get(), received.data(), received.size()),
              static_cast<ssize_t>(sent.size()));
    writer.join();
    EXPECT_EQ(received.substr(0, sent.size()), sent);
}

TEST(WholeIo, ReadsNoMoreThanItIsAskedFor) {
    pipe_ends ends;
    ASSERT_TRUE(write_whole(ends.in.get(), "abcdef"));
    char bytes[4] = {};
    EXPECT_EQ(read_whole(ends.out.get(), bytes, 3), 3);
    EXPECT_STREQ(bytes, "abc");
}

TEST(WholeIo, TellsWhyItFailed) {
    char byte = 0;
    errno = 0;
    EXPECT_FALSE(write_whole(-1, "x"));
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(read_whole(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(flush_whole(-1));
    EXPECT_EQ(errno, EBADF);
    EXPECT_TRUE(write_whole(-1, ""));
}

TEST(WholeIo, AShortWriteIsNoWholeOne) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const owned_fd out(ends[0]);
    const owned_fd in(ends[1]);
    // More than a pipe takes: the first write is a short one, the next finds no room.
    EXPECT_FALSE(write_whole(in.get(), std::string(std::size_t{4} << 20, 'x')));
    EXPECT_EQ(errno, EAGAIN);
}

TEST(WholeIo, NothingIsFlushedWhereThereIsNoFlush) {
    const pipe_ends ends;
    EXPECT_TRUE(flush_whole(ends.in.get()));
}

TEST(WholeIo, FlushesDirectoriesOnly) {
    EXPECT_TRUE(flush_directory("/tmp"));
    EXPECT_FALSE(flush_directory("/tmp/none/such"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(flush_directory("/dev/null"));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(WholeIo, GivesUpAfterManyInterruptions) {
    int calls = 0;
    const auto interrupted = [&calls] {
        ++calls;
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(uninterrupted(interrupted), -1);
    EXPECT_EQ(calls, max_interruptions + 1);
    int left = 3;
    EXPECT_EQ(uninterrupted([&left] {
                  errno = EINTR;
                  return --left > 0 ? -1 : 7;
              }),
              7);
}

}  // namespace
}  // namespace veltrancord
