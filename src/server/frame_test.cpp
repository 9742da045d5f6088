#include "server/frame.h"

#include <gtest/gtest.h>

#include <string>

namespace veltrancord {
namespace {

using namespace std::string_view_literals;

TEST(RequestFrame, FindsAHeadAtTheBeginning) {
    const frame_head head = find_frame_head("?\5\0\0\0read:"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 5U);
    EXPECT_EQ(head.behind_start_code, 1U);
}

TEST(RequestFrame, SkipsWhateverStandsBeforeTheStartCode) {
    const frame_head head = find_frame_head("\0\xFF garbage\n?\1\2\3\4"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 0x04030201U);
    EXPECT_EQ(head.behind_start_code, 12U);
}

TEST(RequestFrame, TakesASecondStartCodeAsPartOfTheLength) {
    const frame_head head = find_frame_head("??\0\0\0"sv);
    EXPECT_EQ(head.state, frame_head_state::complete);
    EXPECT_EQ(head.length, 0x3FU);
}

TEST(RequestFrame, ReadsTheLargestLengthWithoutASign) {
    EXPECT_EQ(find_frame_head("?\xFF\xFF\xFF\xFF"sv).length, 0xFFFFFFFFU);
}

TEST(RequestFrame, TellsThatThereIsNoStartCode) {
    EXPECT_EQ(find_frame_head(""sv).state, frame_head_state::no_start_code);
    EXPECT_EQ(find_frame_head("read:x"sv).state, frame_head_state::no_start_code);
}

TEST(RequestFrame, TellsALengthThatIsMissingFromOneThatIsCut) {
    EXPECT_EQ(find_frame_head("?"sv).state, frame_head_state::length_missing);
    EXPECT_EQ(find_frame_head("xx?"sv).state, frame_head_state::length_missing);
    EXPECT_EQ(find_frame_head("?\1"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0\0"sv).state, frame_head_state::length_cut);
    EXPECT_EQ(find_frame_head("?\1\0\0\0"sv).state, frame_head_state::complete);
}

}  // namespace
}  // namespace veltrancord
