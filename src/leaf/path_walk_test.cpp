#include "leaf/path_walk.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace veltrancord {
namespace {

namespace fs = std::filesystem;

std::vector<mode_t> g_kinds;  // of the entries that the rule was asked for

bool pass(const struct stat& /*directory*/, const struct stat& entry) {
    g_kinds.push_back(entry.st_mode & S_IFMT);
    return true;
}

bool no_links(const struct stat& directory, const struct stat& entry) {
    EXPECT_TRUE(S_ISDIR(directory.st_mode));
    return !S_ISLNK(entry.st_mode);
}

class PathWalk : public testing::Test {
  protected:
    PathWalk() {
        std::string name = (fs::temp_directory_path() / "path_walk-XXXXXX").string();
        dir_ = fs::canonical(::mkdtemp(name.data()));
        fs::create_directories(dir_ / "a/b");
        std::ofstream(dir_ / "a/b/file") << "x";
        g_kinds.clear();
    }
    ~PathWalk() override { fs::remove_all(dir_); }

    // Return: the path reached, or the reason why not.
    std::string walk(const fs::path& path, const path_walk::step_rule& rule = pass) {
        path_walk steps;
        errno = 0;
        if (!steps.follow(path.c_str(), rule)) {
            return std::strerror(errno);
        }
        struct stat named {};
        EXPECT_EQ(::stat(path.c_str(), &named), 0);
        EXPECT_EQ(named.st_ino, steps.entry().st_ino);
        struct stat opened {};
        EXPECT_EQ(::fstat(steps.descriptor(), &opened), 0);
        EXPECT_EQ(named.st_ino, opened.st_ino);
        return steps.path();
    }

    fs::path dir_;
};

TEST_F(PathWalk, ReachesWhatThePathNames) {
    EXPECT_EQ(walk(dir_ / "a/b/file"), dir_ / "a/b/file");
    EXPECT_EQ(walk(dir_ / "a/b"), dir_ / "a/b");
    EXPECT_EQ(walk("/"), "/");
    EXPECT_EQ(walk("//" + dir_.string() + "///a//b//"), dir_ / "a/b");
    EXPECT_EQ(walk(dir_ / "a/../a/./b/file"), dir_ / "a/../a/./b/file");
}

TEST_F(PathWalk, StartsWhereTheProcessStands) {
    const fs::path before = fs::current_path();
    fs::current_path(dir_);
    EXPECT_EQ(walk("a/b/file"), "a/b/file");
    EXPECT_EQ(walk("."), ".");
    fs::current_path(before);
}

TEST_F(PathWalk, FollowsLinksOnTheWayAndAtItsEnd) {
    fs::create_symlink("b", dir_ / "a/near");
    fs::create_symlink(dir_ / "a", dir_ / "far");
    fs::create_symlink("../far/near/file", dir_ / "a/file");
    EXPECT_EQ(walk(dir_ / "a/file"), dir_ / "a/b/file");
    EXPECT_EQ(std::count(g_kinds.begin(), g_kinds.end(), mode_t{S_IFLNK}), 3);
    EXPECT_EQ(g_kinds.back(), mode_t{S_IFREG});
}

TEST_F(PathWalk, StopsWhereTheRuleSaysNo) {
    fs::create_symlink("b", dir_ / "a/near");
    path_walk steps;
    EXPECT_FALSE(steps.follow((dir_ / "a/near/file").c_str(), no_links));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(steps.path(), dir_ / "a/near");
    EXPECT_TRUE(S_ISLNK(steps.entry().st_mode));
    EXPECT_TRUE(S_ISDIR(steps.directory().st_mode));
}

TEST_F(PathWalk, FailsAsTheKernelWould) {
    EXPECT_EQ(walk(""), std::strerror(ENOENT));
    EXPECT_EQ(walk(dir_ / "missing"), std::strerror(ENOENT));
    EXPECT_EQ(walk(dir_ / "missing/file"), std::strerror(ENOENT));
    EXPECT_EQ(walk(dir_ / "a/b/file/"), std::strerror(ENOTDIR));
    EXPECT_EQ(walk(dir_ / "a/b/file/x"), std::strerror(ENOTDIR));
    EXPECT_EQ(walk(dir_ / std::string(NAME_MAX + 1, 'n')), std::strerror(ENAMETOOLONG));
    EXPECT_EQ(walk(std::string(PATH_MAX, 'n')), std::strerror(ENAMETOOLONG));
    fs::create_symlink("circle", dir_ / "circle");
    EXPECT_EQ(walk(dir_ / "circle"), std::strerror(ELOOP));
    fs::create_symlink("longer/", dir_ / "ring");
    fs::create_symlink("ring/", dir_ / "longer");
    EXPECT_EQ(walk(dir_ / "ring/x"), std::strerror(ELOOP));
}

TEST_F(PathWalk, FollowsAsManyLinksAsTheKernel) {
    fs::create_symlink("a", dir_ / "1");
    for (int i = 2; i <= max_links + 1; ++i) {
        fs::create_symlink(std::to_string(i - 1), dir_ / std::to_string(i));
    }
    EXPECT_EQ(walk(dir_ / std::to_string(max_links)), dir_ / "a");
    EXPECT_EQ(walk(dir_ / std::to_string(max_links + 1)), std::strerror(ELOOP));
}

TEST_F(PathWalk, OpensNoPipe) {
    ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(walk(dir_ / "pipe"), dir_ / "pipe");
}

}  // namespace
}  // namespace veltrancord
