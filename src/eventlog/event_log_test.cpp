#include "eventlog/event_log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "leaf/result.h"
#include "leaf/termination.h"
#include "support/event_log_fixture.h"

namespace veltrancord {
namespace {

using test::event;
using test::EventLog;

TEST_F(EventLog, AnswersWithoutADocument) {
    event_log log;
    reply_text reply;
    ASSERT_TRUE(reply.open(262144));
    EXPECT_EQ(add(log, 1, 0), result_denied);
    EXPECT_EQ(log.read({1, -1, 9}, reply), result_denied);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(log.capacity(), 0);
    EXPECT_FALSE(log.save());
}

TEST_F(EventLog, FailsToStartWithoutItsDirectory) {
    event_log log;
    EXPECT_LT(log.start((directory_ + "/none/log").c_str()), 0);
    EXPECT_EQ(messages(), "no event log: the file system of " + directory_ +
                              "/none/log cannot be measured : No such file or directory\n");
    EXPECT_EQ(log.capacity(), 0);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(add(log, 1, 0), result_denied);
    // When the directory has come, cleaning makes a log without capacity, and says so once.
    std::filesystem::create_directory(directory_ + "/none");
    EXPECT_EQ(log.clean(), result_ok);
    EXPECT_EQ(messages(), "the event log holds nothing until the service is started again\n");
    EXPECT_EQ(log.capacity(), 0);
    EXPECT_EQ(add(log, 1, 0), result_ok);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(log.clean(), result_ok);
    EXPECT_EQ(messages(), "");
    for (const char* without_directory : {"log", "/log", ""}) {
        EXPECT_LT(event_log().start(without_directory), 0) << without_directory;
    }
}

TEST_F(EventLog, FailsToStartWhereNoFileCanBe) {
    ASSERT_EQ(::mkdir(path_.c_str(), 0755), 0);
    event_log log;
    EXPECT_EQ(log.start_with_capacity(path_.c_str(), 10), result_failed);
    EXPECT_EQ(log.capacity(), 0);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(add(log, 1, 0), result_denied);
    // Cleaning makes the log anew as soon as that is possible.
    EXPECT_EQ(log.clean(), result_failed);
    ASSERT_EQ(::rmdir(path_.c_str()), 0);
    EXPECT_EQ(log.clean(), result_ok);
    EXPECT_EQ(log.capacity(), 10);
    EXPECT_EQ(add(log, 1, 0), result_ok);
    EXPECT_EQ(log.count(), 1);
}

TEST_F(EventLog, StartPrintsTheCapacity) {
    event_log log;
    EXPECT_EQ(log.start(path_.c_str()), 0);
    int capacity = 0;
    unsigned size = 0;
    const std::string printed = messages();
    ASSERT_EQ(std::sscanf(printed.c_str(), "event log max number = %d iAvailHddSize=0x%x\n",
                          &capacity, &size),
              2);
    EXPECT_EQ(capacity, log.capacity());
    char again[128];
    std::snprintf(again, sizeof again, "event log max number = %d iAvailHddSize=0x%x\n", capacity,
                  size);
    EXPECT_EQ(printed, again);
}

TEST_F(EventLog, MakesAMissingOrEmptyFile) {
    event_log log;
    EXPECT_EQ(log.start_with_capacity(path_.c_str(), 10), 0);
    EXPECT_EQ(file(), "<Log>\n</Log>");
    EXPECT_EQ(log.count(), 0);
    write_file("");
    EXPECT_EQ(event_log().start_with_capacity(path_.c_str(), 10), 0);
    EXPECT_EQ(file(), "<Log>\n</Log>");
    EXPECT_EQ(files(), 1);
}

TEST_F(EventLog, SweepsWhatAnInterruptedSaveLeft) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 10), 0);
    std::ofstream(directory_ + "/.veltrancord-new.log") << "half";
    std::ofstream(directory_ + "/other") << "stays";
    ASSERT_EQ(files(), 3);
    EXPECT_EQ(event_log().start_with_capacity(path_.c_str(), 10), 0);
    EXPECT_EQ(files(), 2);
}

TEST_F(EventLog, PathsAreCutTo63Characters) {
    const std::string long_name = directory_ + "/" + std::string(80, 'n');
    event_log log;
    ASSERT_EQ(log.start_with_capacity(long_name.c_str(), 10), 0);
    EXPECT_TRUE(std::filesystem::exists(long_name.substr(0, 63)));
    EXPECT_FALSE(std::filesystem::exists(long_name));
}

TEST_F(EventLog, EachEntryIsInTheFile) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    EXPECT_EQ(log.add(event(4, 3, "abc", 1), local_log_time(1706743389)), result_ok);
    EXPECT_EQ(file(), "<Log>\n    <E1>4:2024:0:31:23:23:9:3:abc:1</E1>\n</Log>\n");
    EXPECT_EQ(log.count(), 1);
    EXPECT_EQ(add(log, 1, 0, 2), result_ok);
    EXPECT_EQ(add(log, 1, 0, 3), result_ok);
    EXPECT_EQ(log.count(), 3);
    EXPECT_EQ(add(log, 1, 0, 4), result_ok);
    EXPECT_EQ(log.count(), 3);
    EXPECT_EQ(file(),
              "<Log>\n"
              "    <E1>1:1970:0:1:0:0:0:4:d:2</E1>\n"
              "    <E2>1:1970:0:1:0:0:0:2:d:2</E2>\n"
              "    <E3>1:1970:0:1:0:0:0:3:d:2</E3>\n"
              "</Log>\n");
    EXPECT_EQ(files(), 1);
}

TEST_F(EventLog, EntriesThatDoNotReadBackAreKept) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(log.add(event(4, 3, "a:b", 1), local_log_time(0)), result_ok);
    EXPECT_EQ(log.add(event(4, 3, "", 1), local_log_time(0)), result_ok);
    EXPECT_EQ(log.count(), 2);
    EXPECT_EQ(newest(log), "");
    EXPECT_EQ(file(),
              "<Log>\n"
              "    <E1>4:1970:0:1:0:0:0:3:a:b:1</E1>\n"
              "    <E2>4:1970:0:1:0:0:0:3::1</E2>\n"
              "</Log>\n");
}

TEST_F(EventLog, AFileThatCannotBeSavedIsSavedWithTheNextEntry) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    const std::string elsewhere = directory_ + ".away";
    std::filesystem::rename(directory_, elsewhere);
    EXPECT_EQ(add(log, 1, 0, 1), result_ok);
    EXPECT_NE(messages(), "");
    EXPECT_EQ(log.count(), 1);
    std::filesystem::rename(elsewhere, directory_);
    EXPECT_EQ(file(), "<Log>\n</Log>");
    EXPECT_EQ(add(log, 1, 0, 2), result_ok);
    EXPECT_EQ(messages(), "");
    event_log again;
    ASSERT_EQ(again.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(newest(again), "2 1 ");
}

TEST_F(EventLog, NothingIsWrittenWhileTerminating) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    ASSERT_EQ(add(log, 1, 0), result_ok);
    const std::string before = file();
    g_terminating = true;
    EXPECT_EQ(add(log, 1, 0), result_denied);
    EXPECT_FALSE(log.save());
    EXPECT_EQ(log.count(), 1);
    EXPECT_EQ(file(), before);
    EXPECT_EQ(newest(log), "1 ");
}

TEST_F(EventLog, RestartsWhereItWas) {
    {
        event_log log;
        ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
        for (int32_t i = 1; i <= 3; ++i) {
            ASSERT_EQ(add(log, 1, 100 + i, i), result_ok);
        }
    }
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(log.count(), 3);
    ASSERT_EQ(add(log, 1, 104, 4), result_ok);
    EXPECT_EQ(log.count(), 4);
    EXPECT_EQ(newest(log), "4 3 2 1 ");
}

TEST_F(EventLog, OneBelowTheCapacityRestartsFull) {
    {
        event_log log;
        ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
        for (int32_t i = 1; i <= 4; ++i) {
            ASSERT_EQ(add(log, 1, 100 + i, i), result_ok);
        }
        EXPECT_EQ(log.count(), 4);
    }
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(log.count(), 5);
    ASSERT_EQ(add(log, 1, 105, 5), result_ok);
    EXPECT_NE(file().find("<E5>1:1970:0:1:0:1:45:5"), std::string::npos);
    EXPECT_EQ(newest(log), "5 4 3 2 ");
}

TEST_F(EventLog, AFullLogResumesBehindTheLatestTime) {
    write_file(
        "<Log><E1>1:2024:5:1:0:0:0:1:d:2</E1><E2>1:2024:5:2:0:0:0:2:d:2</E2>"
        "<E3>1:2023:5:3:0:0:0:3:d:2</E3><E4>1:2024:4:3:0:0:0:4:d:2</E4></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 4), 0);
    EXPECT_EQ(log.count(), 4);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E3>1:1970"), std::string::npos);
}

TEST_F(EventLog, AmongEqualTimesTheHighestPositionIsTheNewest) {
    write_file(
        "<Log><E1>1:2024:5:1:0:0:0:1:d:2</E1><E2>1:2024:5:1:0:0:0:2:d:2</E2>"
        "<E3>1:2024:5:1:0:0:0:3:d:2</E3><E4>1:2024:4:1:0:0:0:4:d:2</E4></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 4), 0);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E4>1:1970"), std::string::npos);
}

TEST_F(EventLog, WithTheNewestInTheLastElementTheFirstIsNext) {
    write_file(
        "<Log><E1>1:2024:5:1:0:0:0:1:d:2</E1><E2>1:2024:5:2:0:0:0:2:d:2</E2>"
        "<E3>1:2024:5:3:0:0:0:3:d:2</E3></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E1>1:1970"), std::string::npos);
}

TEST_F(EventLog, AnEntryOfTypeZeroIsNotTheNewest) {
    write_file(
        "<Log><E1>0:2024:5:2:0:0:0:1:d:2</E1><E2>1:2024:5:1:0:0:0:2:d:2</E2>"
        "<E3>1:2024:4:3:0:0:0:3:d:2</E3></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E3>1:1970"), std::string::npos);
}

TEST_F(EventLog, UnreadableElementsAreSkippedAndAMissingOneEndsTheSearch) {
    write_file(
        "<Log><E1>1:2024:1:1:0:0:0:1:d:2</E1><E2/><E3>words</E3><E4>1:2024:2:1:0:0:0:4:d:2</E4>"
        "<E6>1:2024:3:1:0:0:0:6:d:2</E6><E7>x</E7></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 7), 0);
    EXPECT_EQ(log.count(), 7);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E5>1:1970"), std::string::npos);
}

TEST_F(EventLog, WithoutAReadableEntryAFullLogResumesBehindTheFirst) {
    write_file("<Log><E1>x</E1><E2>y</E2><E3>z</E3></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E2>1:1970"), std::string::npos);
}

TEST_F(EventLog, CountsElementsOfAnyName) {
    write_file("<Other><a/><b/>text<!-- c --><c/></Other>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 10), 0);
    EXPECT_EQ(log.count(), 3);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<Log>\n    <E4>1:1970"), std::string::npos);
    EXPECT_EQ(newest(log), "9 ");
    EXPECT_NE(messages().find("targetele is null\n"), std::string::npos);
}

TEST_F(EventLog, MoreElementsThanTheCapacityAreAFullLog) {
    std::string text = "<Log>";
    for (int i = 1; i <= 9; ++i) {
        text += "<E" + std::to_string(i) + ">1:2024:0:" + std::to_string(i) +
                ":0:0:0:" + std::to_string(i) + ":d:2</E" + std::to_string(i) + ">";
    }
    write_file(text + "</Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(log.count(), 5);
    EXPECT_EQ(newest(log), "5 4 3 2 ");
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E1>1:1970"), std::string::npos);
    EXPECT_NE(file().find("<E9>1:2024"), std::string::npos);
}

TEST_F(EventLog, AFileThatDoesNotParseStartsAnEmptyLog) {
    write_file("no XML");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(file(), "no XML");
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_EQ(file(), "<Log>\n    <E1>1:1970:0:1:0:0:0:9:d:2</E1>\n</Log>\n");
}

TEST_F(EventLog, ADamagedFileIsKeptBeforeItIsReplaced) {
    const std::string damaged =
        "<Log>\n<E1>1:2024:0:1:0:0:0:1:d:2</E1>\n</Log>\n<E2>1:2024:0:1:0:0:0:2:d:2</E2>\n<E3";
    const auto kept = [this] {
        std::ostringstream text;
        text << std::ifstream(directory_ + "/.veltrancord-kept.log").rdbuf();
        return text.str();
    };
    for (const bool cleaned : {false, true}) {
        write_file(damaged);
        event_log log;
        ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
        EXPECT_NE(messages().find("init_event_log damaged, not read from line "),
                  std::string::npos);
        EXPECT_EQ(kept(), "");
        EXPECT_EQ(cleaned ? log.clean() : add(log, 1, 0, 9), result_ok);
        EXPECT_EQ(kept(), damaged);
        ASSERT_EQ(add(log, 1, 0, 8), result_ok);  // replaces what is whole
        EXPECT_EQ(kept(), damaged);
        EXPECT_EQ(messages(), "");
        std::filesystem::remove(directory_ + "/.veltrancord-kept.log");
    }
}

TEST_F(EventLog, ADamagedFileThatCannotBeKeptIsNotReplaced) {
    write_file("no XML");
    // A directory in the way of what is kept.
    std::filesystem::create_directories(directory_ + "/.veltrancord-kept.log/x");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 5), 0);
    EXPECT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_EQ(log.clean(), result_failed);
    EXPECT_EQ(file(), "no XML");
    EXPECT_EQ(newest(log), "9 ");
    std::filesystem::remove_all(directory_ + "/.veltrancord-kept.log");
    EXPECT_EQ(add(log, 1, 0, 8), result_ok);
    EXPECT_EQ(newest(log), "8 9 ");
    EXPECT_NE(file().find("<E2>"), std::string::npos);
}

TEST_F(EventLog, WithoutCapacityEachEntryOverwritesTheFirst) {
    for (const int32_t capacity : {0, -1, -512}) {
        std::filesystem::remove(path_);
        event_log log;
        ASSERT_EQ(log.start_with_capacity(path_.c_str(), capacity), 0);
        EXPECT_EQ(log.capacity(), capacity);
        EXPECT_EQ(log.count(), capacity);
        for (int32_t i = 1; i <= 3; ++i) {
            EXPECT_EQ(add(log, 1, 0, i), result_ok);
            EXPECT_EQ(log.count(), capacity);
            EXPECT_EQ(file(), "<Log>\n    <E1>1:1970:0:1:0:0:0:" + std::to_string(i) +
                                  ":d:2</E1>\n</Log>\n");
            EXPECT_EQ(newest(log), "");
        }
        EXPECT_EQ(log.clean(), result_ok);
        EXPECT_EQ(log.count(), 0);
        EXPECT_EQ(add(log, 1, 0), result_ok);
        EXPECT_EQ(log.count(), 0);
    }
}

TEST_F(EventLog, CleaningEmptiesLogAndFile) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    for (int32_t i = 1; i <= 5; ++i) {
        ASSERT_EQ(add(log, 1, i, i), result_ok);
    }
    ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
    EXPECT_EQ(log.clean(), result_ok);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(log.capacity(), 3);
    EXPECT_EQ(file(), "<Log>\n</Log>");
    EXPECT_EQ(newest(log), "");
    EXPECT_EQ(files(), 1);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_EQ(log.count(), 1);
    EXPECT_EQ(newest(log), "9 ");
}

// A detail text is 15 bytes of a client's, and may end within a character.
TEST_F(EventLog, ADetailTextNeverTakesInWhatFollowsIt) {
    for (const char* declaration : {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>", "\xEF\xBB\xBF"}) {
        for (const std::string end : {"\xF0", "\xC3&", "\xE2\xF0", "\xF0<"}) {
            write_file(declaration + std::string("<Log></Log>"));
            event_log log;
            ASSERT_EQ(log.start_with_capacity(path_.c_str(), 9), 0);
            EXPECT_EQ(log.add(event(1, 1, "door" + end, 1), local_log_time(1)), result_ok);
            EXPECT_EQ(log.add(event(1, 2, "caf\xC3\xA9", 2), local_log_time(2)), result_ok);
            EXPECT_EQ(log.add(event(1, 3, "last", 3), local_log_time(3)), result_ok);
            event_log again;
            ASSERT_EQ(again.start_with_capacity(path_.c_str(), 9), 0);
            EXPECT_EQ(again.count(), 3);
            EXPECT_EQ(newest(again), "3 2 1 ");
            EXPECT_EQ(read(again, 1, -1, 9), read(log, 1, -1, 9));
            EXPECT_NE(file().find(":1:door"), std::string::npos);
            EXPECT_NE(file().find(":2:caf\xC3\xA9:2<"), std::string::npos);
        }
    }
}

TEST_F(EventLog, ADetailTextOfAnotherEncodingStaysAsItIs) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 9), 0);
    EXPECT_EQ(log.add(event(1, 1, "door\xF0", 1), local_log_time(1)), result_ok);
    EXPECT_NE(file().find(":1:door\xF0:1<"), std::string::npos);
}

TEST_F(EventLog, CleaningKeepsTheLastMode) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 8), 0);
    for (int32_t i = 1; i <= 4; ++i) {
        ASSERT_EQ(add(log, 1, i, i), result_ok);
    }
    EXPECT_EQ(read(log, 1, -1, 1).size(), 32U);
    ASSERT_EQ(log.clean(), result_ok);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    ASSERT_EQ(add(log, 1, 0, 10), result_ok);
    // After mode 1 nothing newer can be there; had the mode been forgotten, the element at the
    // reset cursor would be looked for.
    messages();
    EXPECT_EQ(read(log, 3, -1, 9), "");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(read(log, 2, -1, 9), "");
    EXPECT_EQ(messages(), "targetele is null\n");
}

TEST_F(EventLog, CleaningThatFailsChangesNothing) {
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 9), 0);
    ASSERT_EQ(add(log, 1, 0, 1), result_ok);
    ASSERT_EQ(add(log, 1, 0, 2), result_ok);
    ASSERT_EQ(add(log, 1, 0, 3), result_ok);
    EXPECT_EQ(read(log, 1, -1, 1).size(), 32U);
    const std::string elsewhere = directory_ + ".away";
    std::filesystem::rename(directory_, elsewhere);
    EXPECT_EQ(log.clean(), result_failed);
    std::filesystem::rename(elsewhere, directory_);
    EXPECT_EQ(log.count(), 3);
    EXPECT_EQ(read(log, 2, -1, 9).size(), 64U);  // the cursor is where it was
    EXPECT_EQ(newest(log), "3 2 1 ");
    EXPECT_NE(file().find("<E3>"), std::string::npos);
}

TEST_F(EventLog, HaltSavesOrReports) {
    SystemHaltEventLog();
    EXPECT_EQ(messages(), "SystemHaltEventLog logdoc == NULL\n");
    ASSERT_EQ(g_event_log.start_with_capacity(path_.c_str(), 3), 0);
    ASSERT_EQ(add(g_event_log, 1, 0, 1), result_ok);
    const std::string saved = file();
    write_file("changed");
    messages();
    SystemHaltEventLog();
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(file(), saved);
    write_file("changed");
    g_terminating = true;
    SystemHaltEventLog();
    EXPECT_EQ(messages(), "SystemHaltEventLog logdoc == NULL\n");
    EXPECT_EQ(file(), "changed");
    g_event_log = event_log();
}

}  // namespace
}  // namespace veltrancord
