#include "store/reply_capacity.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace veltrancord {
namespace {

class ReplyCapacity : public testing::Test {
  protected:
    ReplyCapacity() {
        std::string name = testing::TempDir() + "reply_capacity-XXXXXX";
        dir_ = ::mkdtemp(name.data());
    }
    ~ReplyCapacity() override {
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directory(dir_);
        scan_reply_capacity(dir_.c_str());  // back to the least
        std::filesystem::remove_all(dir_);
    }

    void Write(const char* name, std::size_t size) const {
        std::ofstream(dir_ + "/" + name) << std::string(size, 'x');
    }

    // Size of "." and "..".
    [[nodiscard]] uint32_t Directories() const {
        struct stat self = {};
        struct stat parent = {};
        EXPECT_EQ(::stat(dir_.c_str(), &self), 0);
        EXPECT_EQ(::stat((dir_ + "/..").c_str(), &parent), 0);
        return static_cast<uint32_t>(self.st_size + parent.st_size);
    }

    std::string dir_;
};

TEST_F(ReplyCapacity, IsNeverBelowTheLeast) {
    EXPECT_EQ(GetReadBufSize(), 262144U);
    Write("A", 100000);
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), 262144U);
}

TEST_F(ReplyCapacity, IsTheSizeOfAllEntries) {
    Write("A", 100000);
    Write("B", 200000);
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), 300000U + Directories());
}

TEST_F(ReplyCapacity, GrowsOneByteAboveTheLeast) {
    const uint32_t directories = Directories();
    ASSERT_LT(directories, 262143U);
    Write("A", 262143 - directories);
    ASSERT_EQ(Directories(), directories);
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), 262144U);
    Write("A", 262145 - directories);
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), 262145U);
}

TEST_F(ReplyCapacity, EntryThatCannotBeLookedAtIsReportedAndNotCounted) {
    Write("A", 300000);
    std::filesystem::create_symlink("nowhere", dir_ + "/Dangling");
    testing::internal::CaptureStderr();
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Couldn't stat Dangling, error : No such file or directory\n");
    EXPECT_EQ(GetReadBufSize(), 300000U + Directories());
}

TEST_F(ReplyCapacity, TemporaryFileOfAReplacementIsNotCounted) {
    Write("A", 300000);
    Write(".veltrancord-new.A", 300000);
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), 300000U + Directories());
}

TEST_F(ReplyCapacity, DirectoryThatCannotBeOpenedLeavesItUnchanged) {
    Write("A", 300000);
    scan_reply_capacity(dir_.c_str());
    const uint32_t before = GetReadBufSize();
    testing::internal::CaptureStderr();
    scan_reply_capacity((dir_ + "/missing").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "prsize: No such file or directory\n");
    EXPECT_EQ(GetReadBufSize(), before);
}

TEST_F(ReplyCapacity, SizesThatPass32BitsDoNotWrap) {
    for (const char* const name : {"A", "B", "C"}) {
        Write(name, 1);
        ASSERT_EQ(::truncate((dir_ + "/" + name).c_str(), 0x7FFFFFFFL), 0);
    }
    scan_reply_capacity(dir_.c_str());
    EXPECT_EQ(GetReadBufSize(), max_reply_capacity);
}

}  // namespace
}  // namespace veltrancord
