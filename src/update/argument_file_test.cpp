#include "update/argument_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

namespace veltrancord {
namespace {

std::string rest_of(const owned_fd& file) {
    std::string content;
    char block[1000];
    ssize_t count = 0;
    while ((count = read(file.get(), block, sizeof block)) > 0) {
        content.append(block, static_cast<std::size_t>(count));
    }
    return content;
}

std::ptrdiff_t temporary_files() {
    std::ptrdiff_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        count += entry.path().filename().string().starts_with("xmltemp-") ? 1 : 0;
    }
    return count;
}

TEST(ArgumentFile, HoldsTheTextAndHasNoName) {
    const auto before = temporary_files();
    const owned_fd file = make_argument_file("a.b=1\nc.d=2\n");
    ASSERT_TRUE(file);
    EXPECT_EQ(temporary_files(), before);
    EXPECT_EQ(rest_of(open_argument_file(file)), "a.b=1\nc.d=2\n");
    struct stat status {};
    ASSERT_EQ(fstat(file.get(), &status), 0);
    EXPECT_EQ(status.st_nlink, 0U);
}

TEST(ArgumentFile, GivesEachReaderAPositionOfItsOwn) {
    const std::string text(100000, 'x');
    const owned_fd file = make_argument_file(text);
    const owned_fd first = open_argument_file(file);
    const owned_fd second = open_argument_file(file);
    char byte = 0;
    ASSERT_EQ(read(first.get(), &byte, 1), 1);
    EXPECT_EQ(rest_of(second), text);
    EXPECT_EQ(rest_of(first), text.substr(1));
}

TEST(ArgumentFile, TravelsIntoNoOtherProgram) {
    const owned_fd file = make_argument_file("text");
    const owned_fd reader = open_argument_file(file);
    EXPECT_EQ(fcntl(file.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(reader.get(), F_GETFD), FD_CLOEXEC);
}

TEST(ArgumentFile, MayBeEmpty) {
    const owned_fd file = make_argument_file("");
    ASSERT_TRUE(file);
    EXPECT_EQ(rest_of(open_argument_file(file)), "");
}

TEST(ArgumentFile, SaysWhyItCannotBeMade) {
    const auto make_without_descriptors = [] {
        const rlimit limit{3, 3};
        _exit(setrlimit(RLIMIT_NOFILE, &limit) == 0 && !make_argument_file("text") ? 0 : 1);
    };
    EXPECT_EXIT(make_without_descriptors(), ::testing::ExitedWithCode(0),
                "^mkstemp: Too many open files\n$");
}

TEST(ArgumentFile, KeepsWhatCouldBeWritten) {
    const auto write_too_much = [] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            _exit(1);
        }
        const owned_fd file = make_argument_file(std::string(3000, 'x'));
        _exit(rest_of(open_argument_file(file)) == std::string(1000, 'x') ? 0 : 2);
    };
    EXPECT_EXIT(write_too_much(), ::testing::ExitedWithCode(0), "^write body: File too large\n$");
}

TEST(ArgumentFile, NothingOpensNothing) {
    EXPECT_FALSE(open_argument_file(owned_fd()));
}

TEST(ArgumentFile, IsCopiedWhereItCannotBeOpenedAnew) {
    const auto open_without_permission = [] {
        // Nothing is closed to the superuser.
        if (geteuid() == 0 && setuid(65534) != 0) {
            _exit(1);
        }
        const std::string text(10000, 'y');
        const owned_fd file = make_argument_file(text);
        if (fchmod(file.get(), 0) != 0) {
            _exit(2);
        }
        const owned_fd first = open_argument_file(file);
        const owned_fd second = open_argument_file(file);
        _exit(rest_of(first) == text && rest_of(second) == text ? 0 : 3);
    };
    EXPECT_EXIT(open_without_permission(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace veltrancord
