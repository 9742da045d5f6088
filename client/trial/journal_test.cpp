#include "trial/journal.h"

#include <gtest/gtest.h>

namespace veltrancord::trial {
namespace {

journal sample() {
    journal content;
    content.boot = "5f0c";
    content.deadline = 123456;
    content.files = {{"Network", "8:1:77"}, {"With blank", "8:1:78"}};
    content.former.entries = {
        {"Network.Lan.Mtu", former_kind::value, "a=b end", "1400"},
        {"Network.Lan.Name", former_kind::value, "", "x=y"},
        {"Network.Lan.Label of mine", former_kind::empty, "", ""},
        {"Network.Lan.New.Deep", former_kind::absent, "", "end"},
    };
    content.former.created = {"Network.Lan.New"};
    return content;
}

TEST(TrialJournal, ComesBackAsItWasWritten) {
    const journal written = sample();
    journal read;
    ASSERT_TRUE(parse_journal(journal_text(written), read));
    EXPECT_EQ(read.boot, written.boot);
    EXPECT_EQ(read.deadline, written.deadline);
    EXPECT_EQ(read.files, written.files);
    EXPECT_EQ(read.former.created, written.former.created);
    ASSERT_EQ(read.former.entries.size(), written.former.entries.size());
    for (std::size_t index = 0; index < read.former.entries.size(); ++index) {
        const former_setting& one = read.former.entries[index];
        const former_setting& other = written.former.entries[index];
        EXPECT_EQ(one.path, other.path);
        EXPECT_EQ(one.kind, other.kind);
        EXPECT_EQ(one.before, other.before);
        EXPECT_EQ(one.after, other.after);
    }
}

TEST(TrialJournal, IsRefusedWhereItIsCut) {
    const std::string text = journal_text(sample());
    for (std::size_t size = 0; size < text.size(); ++size) {
        journal read;
        EXPECT_FALSE(parse_journal(std::string_view(text).substr(0, size), read)) << size;
    }
}

TEST(TrialJournal, IsRefusedWhereItIsNone) {
    for (const char* text :
         {"", "\n", "end\n", "veltrancord-trial 2\nend\n", "veltrancord-trial 1\nend\nmore\n",
          "veltrancord-trial 1\nnonsense\nend\n", "veltrancord-trial 1\nother a=b\nend\n",
          "veltrancord-trial 1\ndeadline 1x\nend\n", "veltrancord-trial 1\nfile Network\nend\n",
          "veltrancord-trial 1\nbecomes a=b\nend\n", "veltrancord-trial 1\nvalue a\nend\n",
          "veltrancord-trial 1\nvalue a=1\nbecomes b=2\nend\n",
          "veltrancord-trial 1\nvalue a=1\nvalue b=2\nbecomes b=2\nend\n",
          "veltrancord-trial 1\nvalue a=1\nend\n"}) {
        journal read;
        EXPECT_FALSE(parse_journal(text, read)) << text;
    }
}

TEST(BootMilliseconds, GoOn) {
    const int64_t before = boot_milliseconds();
    EXPECT_GT(before, 0);
    EXPECT_GE(boot_milliseconds(), before);
    EXPECT_FALSE(boot_name().empty());
}

}  // namespace
}  // namespace veltrancord::trial
