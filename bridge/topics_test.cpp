#include "topics.h"

#include <gtest/gtest.h>

namespace veltrancord::bridge {
namespace {

TEST(Topics, AreBelowTheDevice) {
    EXPECT_EQ(topic_of("yard-1", desired_topic), "veltrancord/1/yard-1/config/desired");
}

TEST(DeviceName, IsOneLevelOfATopic) {
    EXPECT_TRUE(is_device_name("yard-1.example.net"));
    EXPECT_TRUE(is_device_name(std::string(max_device_name, 'x')));
    for (const char* const one : {"", "+", "#", "a/b", "a+", "$SYS", "-a", ".a", "a b", "a\n"}) {
        EXPECT_FALSE(is_device_name(one)) << one;
    }
    EXPECT_FALSE(is_device_name(std::string(max_device_name + 1, 'x')));
    EXPECT_FALSE(is_device_name(std::string_view("a\0b", 3)));
}

}  // namespace
}  // namespace veltrancord::bridge
