#include "server/frame.h"

#include <gtest/gtest.h>

#include <string>

namespace veltrancord {
namespace {

using namespace std::string_view_literals;

TEST(request_frame, finds_a_head_at_the_beginning) {
    const frame_head head = find_frame_head("?\5\0\0\0read:"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 5U);
    EXPECT_EQ(head.behind_start_code, 1U);
}

TEST(request_frame, skips_whatever_stands_before_the_start_code) {
    const frame_head head = find_frame_head("\0\xFF garbage\n?\1\2\3\4"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 0x04030201U);
    EXPECT_EQ(head.behind_start_code, 12U);
}

TEST(request_frame, takes_a_second_start_code_as_part_of_the_length) {
    const frame_head head = find_frame_head("??\0\0\0"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 0x3FU);
}

TEST(request_frame, reads_the_largest_length_without_a_sign) {
    EXPECT_EQ(find_frame_head("?\xFF\xFF\xFF\xFF"sv).length, 0xFFFFFFFFU);
}

TEST(request_frame, tells_that_there_is_no_start_code) {
    EXPECT_EQ(find_frame_head(""sv).state, frame_head_state::no_start_code);
    EXPECT_EQ(find_frame_head("read:x"sv).state, frame_head_state::no_start_code);
}

TEST(request_frame, tells_a_length_that_is_missing_from_one_that_is_cut) {
    EXPECT_EQ(find_frame_head("?"sv).state, frame_head_state::length_missing);
    EXPECT_EQ(find_frame_head("xx?"sv).state, frame_head_state::length_missing);
    EXPECT_EQ(find_frame_head("?\1"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0\0"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0\0\0"sv).state, frame_head_state::complete);
}

}  // namespace
}  // namespace veltrancord
