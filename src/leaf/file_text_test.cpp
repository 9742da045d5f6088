#include "leaf/file_text.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/document_set_fixture.h"

namespace veltrancord {
namespace {

TEST_F(DocumentSet, ReadsAWholeFileWithANulBehindIt) {
    std::string content(200000, 'x');
    Write("Big", content);
    std::string text;
    EXPECT_EQ(Read(Path("Big"), 0, &text), "");
    EXPECT_EQ(text, content);
}

// A file may end before the size that it had when it was measured; a file of /sys always does. What
// is missing reads as zero bytes and not as what memory happened to hold.
TEST_F(DocumentSet, EarlyEndOfFileIsReportedAndReadsAsZero) {
    const char* const file = "/sys/kernel/mm/transparent_hugepage/enabled";
    if (::access(file, R_OK | W_OK) != 0) {
        GTEST_SKIP() << "no file here ends before its size";
    }
    testing::internal::CaptureStderr();
    std::string text;
    EXPECT_EQ(Read(file, 0, &text), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "LoadFile2Buf error Success\n");
    EXPECT_GT(text.size(), 0U);
    EXPECT_LT(text.size(), 4096U);
}

}  // namespace
}  // namespace veltrancord
