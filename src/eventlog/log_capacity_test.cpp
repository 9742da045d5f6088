#include "eventlog/log_capacity.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace veltrancord {
namespace {

constexpr uint32_t kib = 1024;

int32_t capacity_of(uint32_t block_size, uint32_t blocks) {
    return log_capacity_for_size(log_file_system_size(block_size, blocks));
}

TEST(LogCapacity, FollowsTheSizeOfTheFileSystem) {
    EXPECT_EQ(capacity_of(4096, 16 * kib * kib / 4096), 1000);
    EXPECT_EQ(capacity_of(4096, 64), 512);  // 256 KiB
    EXPECT_EQ(capacity_of(512, 512), 512);  // the same in small blocks
    EXPECT_EQ(log_capacity_for_size(387072), 1000);
    EXPECT_EQ(log_capacity_for_size(387071), 999);
    EXPECT_EQ(log_capacity_for_size(387072 + 256), 1000);
    EXPECT_EQ(log_capacity_for_size(INT32_MAX), 1000);
    EXPECT_EQ(log_capacity_for_size(131072 + 255), 0);
    EXPECT_EQ(log_capacity_for_size(131072 + 256), 1);
    EXPECT_EQ(log_capacity_for_size(131072 + 511), 1);
}

TEST(LogCapacity, IsNotBoundedBelow) {
    EXPECT_EQ(log_capacity_for_size(131072), 0);
    // The quarter is rounded toward zero, the entries down.
    EXPECT_EQ(log_capacity_for_size(131072 - 3), 0);
    EXPECT_EQ(log_capacity_for_size(131072 - 4), -1);
    EXPECT_EQ(log_capacity_for_size(131072 - 256), -1);
    EXPECT_EQ(log_capacity_for_size(131072 - 259), -1);
    EXPECT_EQ(log_capacity_for_size(131072 - 260), -2);
    EXPECT_EQ(log_capacity_for_size(0), -512);
    EXPECT_EQ(log_capacity_for_size(-3), -512);
    EXPECT_EQ(log_capacity_for_size(-4), -513);
}

TEST(LogCapacity, SizesWrapInto32Bits) {
    EXPECT_EQ(log_file_system_size(4096, 0x80000), INT32_MIN);  // 2 GiB
    EXPECT_EQ(capacity_of(4096, 0x80000), -8389120);
    EXPECT_EQ(log_file_system_size(4096, 0x7FFFF), INT32_MAX - 4095);
    EXPECT_EQ(capacity_of(4096, 0x7FFFF), 1000);
    EXPECT_EQ(log_file_system_size(4096, 0xFFFFF), -4096);
    EXPECT_EQ(log_file_system_size(4096, 0x100000), 0);  // 4 GiB
    EXPECT_EQ(capacity_of(4096, 0x100000), -512);
    EXPECT_EQ(capacity_of(4096, 0x100000 + 64), 512);  // 4 GiB and 256 KiB
}

TEST(LogCapacity, AsksTheFileSystemOfADirectory) {
    int32_t size = 7;
    EXPECT_EQ(read_log_file_system_size("/", size), 0);
    size = 7;
    EXPECT_LT(read_log_file_system_size("/no/such/directory", size), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(size, 7);
    EXPECT_LT(read_log_file_system_size("", size), 0);
}

}  // namespace
}  // namespace veltrancord
