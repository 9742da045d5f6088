#include "leaf/trusted_program.h"

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

// In /tmp, as the scripts of a device: a sticky directory of root's.
class TrustedProgram : public testing::Test {
  protected:
    TrustedProgram() {
        char name[] = "/tmp/trusted_program-XXXXXX";
        dir_ = ::mkdtemp(name);
        ::chmod(dir_.c_str(), 0755);
        fs::create_directory(dir_ / "bin");
        make(dir_ / "bin/script");
    }
    ~TrustedProgram() override { fs::remove_all(dir_); }

    static void make(const fs::path& file) {
        std::ofstream(file) << "#!/bin/sh\n";
        set_mode(file, 0755);
    }
    static void set_mode(const fs::path& file, mode_t mode) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    }
    std::string why(const fs::path& file) const {
        return why_not_trusted((dir_ / file).c_str(), ::geteuid());
    }
    std::string reason(const fs::path& step, const std::string& text) const {
        return (dir_ / step).string() + text;
    }

    fs::path dir_;
};

TEST_F(TrustedProgram, IsOneThatNobodyElseCanChange) {
    EXPECT_EQ(why("bin/script"), "");
    EXPECT_EQ(why_not_trusted("/bin/sh", ::geteuid()), "");
    fs::create_symlink("../bin/script", dir_ / "bin/link");
    fs::create_symlink(dir_ / "bin", dir_ / "tools");
    EXPECT_EQ(why("tools/link"), "");
}

TEST_F(TrustedProgram, MayNotBeWritableByOthers) {
    for (const mode_t mode : {0775U, 0757U, 0777U, 01777U}) {
        set_mode(dir_ / "bin/script", mode);
        EXPECT_EQ(why("bin/script"), reason("bin/script", " may be changed by others"));
    }
}

TEST_F(TrustedProgram, MayNotLieWhereOthersCanExchangeIt) {
    for (const mode_t mode : {0775U, 0757U, 0777U}) {
        set_mode(dir_ / "bin", mode);
        EXPECT_EQ(why("bin/script"),
                  reason("bin/script", " lies in a directory that others may write to"));
        set_mode(dir_ / "bin", 0755);
        set_mode(dir_, mode);
        EXPECT_EQ(why("bin/script"),
                  reason("bin", " lies in a directory that others may write to"));
        set_mode(dir_, 0755);
    }
}

TEST_F(TrustedProgram, MayNotBeReachedByALinkThatOthersCanExchange) {
    fs::create_directory(dir_ / "open");
    fs::create_symlink("../bin/script", dir_ / "open/link");
    set_mode(dir_ / "open", 0777);
    EXPECT_EQ(why("open/link"),
              reason("open/link", " lies in a directory that others may write to"));
    set_mode(dir_ / "open", 0755);
    EXPECT_EQ(why("open/link"), "");
    set_mode(dir_ / "bin", 0777);
    EXPECT_NE(why("open/link"), "");
}

TEST_F(TrustedProgram, MayNotBeSomebodyElsesAtAnyStep) {
    if (::geteuid() != 0 || ::chown((dir_ / "bin").c_str(), somebody, somebody) != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    EXPECT_EQ(why("bin/script"), reason("bin", " belongs to another user"));
    ASSERT_EQ(::chown((dir_ / "bin").c_str(), 0, 0), 0);
    ASSERT_EQ(::chown((dir_ / "bin/script").c_str(), somebody, somebody), 0);
    EXPECT_EQ(why("bin/script"), reason("bin/script", " belongs to another user"));
    EXPECT_EQ(why_not_trusted((dir_ / "bin/script").c_str(), somebody), "");
    make(dir_ / "good");
    fs::create_symlink("good", dir_ / "link");
    ASSERT_EQ(::lchown((dir_ / "link").c_str(), somebody, somebody), 0);
    EXPECT_EQ(why("link"), reason("link", " belongs to another user"));
}

TEST_F(TrustedProgram, MayLieInAStickyDirectoryOfRootOnly) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser has such a directory";
    }
    set_mode(dir_ / "bin", 01777);
    EXPECT_EQ(why("bin/script"), "");
    fs::create_hard_link(dir_ / "bin/script", dir_ / "bin/second");
    EXPECT_EQ(why("bin/script"), reason("bin/script", " has several names"));
    fs::remove(dir_ / "bin/second");
    ASSERT_EQ(::chown((dir_ / "bin").c_str(), somebody, somebody), 0);
    set_mode(dir_ / "bin", 01777);
    EXPECT_NE(why("bin/script"), "");
}

TEST_F(TrustedProgram, MayBeMissingWhereNobodyElseCouldPutIt) {
    EXPECT_EQ(why("missing"), "");
    EXPECT_EQ(why("missing/script"), "");
    set_mode(dir_, 01777);
    EXPECT_EQ(why("missing"), reason("missing", ": No such file or directory"));
    EXPECT_EQ(why("missing/script"), reason("missing", ": No such file or directory"));
    fs::create_symlink("../missing", dir_ / "bin/link");
    EXPECT_EQ(why("bin/link/x"), reason("bin/../missing", ": No such file or directory"));
}

TEST_F(TrustedProgram, IsLookedForWhereTheProcessStands) {
    const fs::path before = fs::current_path();
    fs::current_path(dir_ / "bin");
    EXPECT_EQ(why_not_trusted("script", ::geteuid()), "");
    set_mode(dir_, 0777);
    EXPECT_NE(why_not_trusted("script", ::geteuid()), "");
    fs::current_path(before);
}

TEST_F(TrustedProgram, IsToldAboutInOneLine) {
    const std::string path = dir_ / "bin/script";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(is_trusted_program(path.c_str()));
    set_mode(path, 0777);
    EXPECT_FALSE(is_trusted_program(path.c_str()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "program not run: " + path + " : " + path + " may be changed by others\n");
}

}  // namespace
}  // namespace veltrancord
