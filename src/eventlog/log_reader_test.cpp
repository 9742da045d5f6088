#include "eventlog/log_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "leaf/result.h"

namespace veltrancord {
namespace {

TEST(LogRequest, HasThreeDecimalFields) {
    log_request request;
    ASSERT_TRUE(parse_log_request("1&-1&50", request));
    EXPECT_EQ(request.mode, 1);
    EXPECT_EQ(request.mask, -1);
    EXPECT_EQ(request.limit, 50);
    ASSERT_TRUE(parse_log_request(" +3x&2 &0x10", request));
    EXPECT_EQ(request.mode, 3);
    EXPECT_EQ(request.mask, 2);
    EXPECT_EQ(request.limit, 0);
    ASSERT_TRUE(parse_log_request("a&b&c", request));
    EXPECT_EQ(request.mode, 0);
    EXPECT_EQ(request.mask, 0);
    EXPECT_EQ(request.limit, 0);
}

TEST(LogRequest, EachFieldKeepsSevenCharacters) {
    log_request request;
    ASSERT_TRUE(parse_log_request("12345678&-12345678&       9", request));
    EXPECT_EQ(request.mode, 1234567);
    EXPECT_EQ(request.mask, -123456);
    EXPECT_EQ(request.limit, 0);
    ASSERT_TRUE(parse_log_request("0000001&      8&99999999999999999999", request));
    EXPECT_EQ(request.mode, 1);
    EXPECT_EQ(request.mask, 8);
    EXPECT_EQ(request.limit, 9999999);
}

TEST(LogRequest, WithoutAFieldIsRefused) {
    log_request request;
    for (const char* text : {"", "&", "&&", "1", "1&", "1&2", "1&2&", "1&&3", "&2&3"}) {
        EXPECT_FALSE(parse_log_request(text, request)) << text;
    }
}

TEST(LogRequest, FurtherFieldsAreIgnored) {
    log_request request;
    ASSERT_TRUE(parse_log_request("1&2&3&4", request));
    EXPECT_EQ(request.limit, 3);
    ASSERT_TRUE(parse_log_request("1&2&3&", request));
    EXPECT_EQ(request.limit, 3);
}

// A log of `entries` entries of the types 1, 2, 4, 1, 2, 4 ... in a ring of `capacity`.
class LogReader : public testing::Test {
  protected:
    using numbers = std::vector<int>;

    void fill(int32_t capacity, int32_t entries) {
        document_.emplace(capacity);
        document_->load("<Log>\n</Log>");
        ring_ = partial_log_ring(capacity, 0);
        for (int32_t i = 0; i < entries; ++i) {
            write(std::to_string(1 << i % 3) + ":2024:0:1:2:3:4:" + std::to_string(i) + ":d:5");
        }
    }

    void write(const std::string& text) {
        document_->set(ring_.write_position(), text);
        ring_.advance();
    }

    // The first detail value of each record, which numbers the entries.
    numbers read(int32_t mode, long mask, int32_t limit, std::size_t bound = 262144) {
        reply_text reply;
        EXPECT_TRUE(reply.open(bound));
        testing::internal::CaptureStderr();
        result_ = log_read(*document_, ring_, cursor_, {mode, mask, limit}, reply);
        messages_ = testing::internal::GetCapturedStderr();
        EXPECT_EQ(static_cast<std::size_t>(result_), reply.size());
        numbers found;
        for (std::size_t at = 0; at < reply.size(); at += log_record_size) {
            found.push_back(static_cast<unsigned char>(reply.view()[at + 10]));
        }
        return found;
    }

    std::optional<log_document> document_;
    log_ring ring_;
    log_cursor cursor_;
    int32_t result_ = 0;
    std::string messages_;
};

TEST_F(LogReader, GivesRecordsOf32Bytes) {
    fill(8, 1);
    reply_text reply;
    ASSERT_TRUE(reply.open(262144));
    EXPECT_EQ(log_read(*document_, ring_, cursor_, {1, -1, 10}, reply), 32);
    EXPECT_EQ(reply.view(), std::string("\1\0\0\0\x18\0\1\2\3\4\0d\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\5"
                                        "\0\0\0\0",
                                        32));
}

TEST_F(LogReader, PagesThroughAPartialRing) {
    fill(8, 5);
    EXPECT_EQ(read(1, -1, 2), (numbers{4, 3}));
    EXPECT_EQ(read(2, -1, 9), (numbers{2, 1, 0}));
    EXPECT_EQ(read(2, -1, 9), (numbers{}));
    EXPECT_EQ(read(3, -1, 9), (numbers{3, 4}));
    EXPECT_EQ(read(3, -1, 9), (numbers{}));
    EXPECT_EQ(messages_, "");
}

TEST_F(LogReader, APageThatEndsBeforeTheFirstEntryLeavesItOut) {
    fill(8, 5);
    EXPECT_EQ(read(1, -1, 2), (numbers{4, 3}));
    EXPECT_EQ(read(2, -1, 2), (numbers{2, 1}));
    EXPECT_EQ(read(2, -1, 2), (numbers{}));
    EXPECT_EQ(read(3, -1, 9), (numbers{3, 4}));
}

TEST_F(LogReader, NeverReturnsTheOldestOfAFullRing) {
    fill(5, 8);  // E1 to E5 hold 5, 6, 7, 3, 4
    EXPECT_EQ(read(1, -1, 9), (numbers{7, 6, 5, 4}));
    EXPECT_EQ(read(2, -1, 9), (numbers{}));
}

TEST_F(LogReader, LimitIsTestedBehindEachEntry) {
    fill(8, 5);
    EXPECT_EQ(read(1, -1, 1), (numbers{4}));
    EXPECT_EQ(read(1, -1, 0), (numbers{4}));
    EXPECT_EQ(read(1, -1, -7), (numbers{4}));
    EXPECT_EQ(read(1, 1, 0), (numbers{}));  // the newest is passed over, and that is all
    EXPECT_EQ(messages_, "TransferToLog == 0\n");
    EXPECT_EQ(read(1, 1, 1), (numbers{3}));
    EXPECT_EQ(read(1, -1, INT32_MAX), (numbers{4, 3, 2, 1, 0}));
}

TEST_F(LogReader, LimitIsHeldWithinTheReply) {
    fill(8, 5);
    EXPECT_EQ(read(1, -1, 9, 32 * 3 + 31), (numbers{4, 3, 2}));
    EXPECT_EQ(read(2, -1, 9, 32), (numbers{1}));
    EXPECT_EQ(messages_, "");
}

TEST_F(LogReader, MaskSelectsTypes) {
    fill(12, 9);
    EXPECT_EQ(read(1, 0, 9), (numbers{}));
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(messages_.size(), 9 * std::string("TransferToLog == 0\n").size());
    EXPECT_EQ(read(1, 1, 9), (numbers{6, 3, 0}));
    EXPECT_EQ(read(1, 6, 9), (numbers{8, 7, 5, 4, 2, 1}));
    EXPECT_EQ(messages_, "TransferToLog == 0\nTransferToLog == 0\nTransferToLog == 0\n");
    EXPECT_EQ(read(1, 8, 9), (numbers{}));
    EXPECT_EQ(read(1, -1, 9).size(), 9U);
    EXPECT_EQ(messages_, "");
}

TEST_F(LogReader, MaskMeetsTheTypeInFullWidth) {
    fill(8, 0);
    write("-2147483648:2024:0:1:2:3:4:1:d:5");
    write("-1:2024:0:1:2:3:4:2:d:5");
    write("0:2024:0:1:2:3:4:3:d:5");
    EXPECT_EQ(read(1, -1, 9), (numbers{2, 1}));
    EXPECT_EQ(read(1, -999999, 9), (numbers{2, 1}));
    EXPECT_EQ(read(1, 9999999, 9), (numbers{2}));
}

TEST_F(LogReader, UnreadableEntriesArePassedOver) {
    fill(8, 1);
    write("4:2024:0:31:23:5:9:3::1");
    write("4:2024:0:31:23:5:9:3:a:b:1");
    write("4:2024:0:31:23:5:9:33:ab:1");
    EXPECT_EQ(read(1, -1, 9), (numbers{33, 0}));
    EXPECT_EQ(messages_, "TransferToLog == 0\nTransferToLog == 0\n");
}

TEST_F(LogReader, ElementsWithoutTextArePassedOverSilently) {
    fill(8, 0);
    document_->load(
        "<Log><E1>1:2024:0:1:2:3:4:1:d:5</E1><E2/><E3>1:2024:0:1:2:3:4:3:d:5</E3></Log>");
    ring_ = partial_log_ring(8, 3);
    EXPECT_EQ(read(1, -1, 9), (numbers{3, 1}));
    EXPECT_EQ(messages_, "");
}

TEST_F(LogReader, AMissingElementEndsThePage) {
    fill(8, 0);
    document_->load(
        "<Log><E1>1:2024:0:1:2:3:4:1:d:5</E1><E3>1:2024:0:1:2:3:4:3:d:5</E3><X/></Log>");
    ring_ = partial_log_ring(8, 3);
    EXPECT_EQ(read(1, -1, 9), (numbers{3}));
    EXPECT_EQ(messages_, "targetele is null\n");
    EXPECT_EQ(cursor_.position, 2);
    EXPECT_EQ(read(2, -1, 9), (numbers{}));
    EXPECT_EQ(messages_, "targetele is null\n");
    EXPECT_EQ(result_, 0);
}

TEST_F(LogReader, BeforeTheFirstPageTheCursorStandsAtNoEntry) {
    for (const int32_t mode : {0, 2, 3}) {
        fill(8, 5);
        cursor_ = log_cursor{};
        EXPECT_EQ(read(mode, -1, 9), (numbers{}));
        EXPECT_EQ(messages_, "targetele is null\n") << mode;
    }
}

TEST_F(LogReader, ReadsAForeignElementWhereTheCursorStandsBeforeTheFirstPage) {
    fill(8, 0);
    document_->load("<Log><E-1>1:2024:0:1:2:3:4:99:d:5</E-1><E1>x</E1></Log>");
    ring_ = partial_log_ring(8, 2);
    EXPECT_EQ(read(0, -1, 1), (numbers{99}));
    EXPECT_EQ(read(2, -1, 9), (numbers{99}));
    EXPECT_EQ(cursor_.position, -2);
}

TEST_F(LogReader, AnyOtherModeRepeatsOneEntry) {
    fill(8, 5);
    EXPECT_EQ(read(1, -1, 2), (numbers{4, 3}));
    EXPECT_EQ(read(0, -1, 3), (numbers{2, 2, 2}));
    EXPECT_EQ(read(4, -1, 99), (numbers{2, 2, 2, 2, 2}));  // as many as there are entries
    EXPECT_EQ(read(2, -1, 9), (numbers{2, 1, 0}));
}

TEST_F(LogReader, ReadsNothingWithoutEntriesOrCapacity) {
    for (const int32_t capacity : {-512, 0, 1, 8}) {
        fill(capacity, 0);
        cursor_ = log_cursor{};
        for (const int32_t mode : {0, 1, 2, 3, 2, 3, 1, 3, 2}) {
            EXPECT_EQ(read(mode, -1, 9), (numbers{})) << capacity;
            EXPECT_EQ(result_, 0);
            EXPECT_EQ(messages_, "");
        }
        ring_ = full_log_ring(std::min(capacity, 0), 1);
        for (const int32_t mode : {0, 1, 2, 3, 2, 3, 1, 3, 2}) {
            EXPECT_EQ(read(mode, -1, 9), (numbers{})) << capacity;
        }
    }
}

}  // namespace
}  // namespace veltrancord
