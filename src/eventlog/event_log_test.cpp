#include "eventlog/event_log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "eventlog/log_model.h"
#include "leaf/bounded_text.h"
#include "leaf/result.h"
#include "leaf/termination.h"

namespace veltrancord {
namespace {

log_record event(int32_t type, int32_t first = 1, const std::string& detail = "d",
                 int32_t second = 2) {
    log_record record;
    record.type = type;
    record.first_detail = static_cast<uint8_t>(first);
    copy_bounded(record.detail_text, detail);
    record.second_detail = static_cast<uint8_t>(second);
    return record;
}

class EventLog : public testing::Test {
  protected:
    EventLog() {
        // In memory where there is such a place: each entry is flushed to the device.
        std::string name = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir()) +
                           "eventlog-XXXXXX";
        directory_ = ::mkdtemp(name.data());
        path_ = directory_ + "/log";
        ::setenv("TZ", "UTC0", 1);
        testing::internal::CaptureStderr();
    }

    ~EventLog() override {
        g_terminating = false;
        testing::internal::GetCapturedStderr();
        std::filesystem::remove_all(directory_);
    }

    std::string messages() {
        const std::string printed = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return printed;
    }

    void write_file(const std::string& text) const { std::ofstream(path_) << text; }

    [[nodiscard]] std::string file() const {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }

    // Names in the log's directory.
    [[nodiscard]] int files() const {
        int count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory_)) {
            ++count;
        }
        return count;
    }

    static int32_t add(event_log& log, int32_t type, int64_t seconds, int32_t first = 1) {
        return log.add(event(type, first), local_log_time(seconds));
    }

    static std::string read(event_log& log, int32_t mode, int32_t mask, int32_t limit) {
        reply_text reply;
        EXPECT_TRUE(reply.open(262144));
        const int32_t result = log.read({mode, mask, limit}, reply);
        EXPECT_EQ(result, static_cast<int32_t>(reply.size()));
        return std::string(reply.view());
    }

    // First detail values, newest first.
    static std::string newest(event_log& log) {
        std::string numbers;
        const std::string records = read(log, 1, -1, 9999);
        for (std::size_t at = 0; at < records.size(); at += 32) {
            numbers += std::to_string(records[at + 10]) + " ";
        }
        return numbers;
    }

    std::string directory_;
    std::string path_;
};

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
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(log.capacity(), 0);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(add(log, 1, 0), result_denied);
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

TEST_F(EventLog, EntriesOfTypeZeroCountForTheNewest) {
    write_file(
        "<Log><E1>0:2024:5:2:0:0:0:1:d:2</E1><E2>1:2024:5:1:0:0:0:2:d:2</E2>"
        "<E3>1:2024:4:3:0:0:0:3:d:2</E3></Log>");
    event_log log;
    ASSERT_EQ(log.start_with_capacity(path_.c_str(), 3), 0);
    ASSERT_EQ(add(log, 1, 0, 9), result_ok);
    EXPECT_NE(file().find("<E2>1:1970"), std::string::npos);
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

// Long random sequences of everything, against the rules written down a second time.
class EventLogModel : public EventLog, public testing::WithParamInterface<int32_t> {
  protected:
    std::string any_detail() {
        std::string text;
        for (auto length = random_() % 17; length > 0; --length) {
            text += "ab<&:\"\xC3"[random_() % (random_() % 4 == 0 ? 7 : 2)];
        }
        return text.substr(0, 15);
    }

    std::mt19937 random_{static_cast<uint32_t>(GetParam()) + 77};
};

TEST_P(EventLogModel, AgreesOverLongSequences) {
    const int32_t capacity = GetParam();
    auto log = std::make_unique<event_log>();
    ASSERT_EQ(log->start_with_capacity(path_.c_str(), capacity), 0);
    test::log_model model(capacity);
    int64_t now = 1700000000;
    for (int step = 0; step < 6000; ++step) {
        const auto what = random_() % 1000;
        if (what < 450) {
            now += static_cast<int64_t>(random_() % 3);
            if (random_() % 60 == 0) {
                now -= 5000;  // the clock is set back
            }
            const auto type = static_cast<int32_t>(random_() % 8) - 1;
            const auto first = static_cast<int32_t>(random_() % 256);
            const auto second = static_cast<int32_t>(random_() % 256);
            const std::string detail = any_detail();
            ASSERT_EQ(log->add(event(type, first, detail, second), local_log_time(now)), result_ok);
            model.write(type, now, first, detail, second);
        } else if (what < 980) {
            const auto mode = random_() % 12 == 0 ? static_cast<int32_t>(random_() % 6) - 1
                                                  : static_cast<int32_t>(random_() % 3) + 1;
            const int32_t mask = random_() % 3 == 0 ? static_cast<int32_t>(random_() % 8) : -1;
            const auto limit = static_cast<int32_t>(random_() % 7) - 1;
            ASSERT_EQ(read(*log, mode, mask, limit), model.read(mode, mask, limit))
                << "step " << step << " mode " << mode << " mask " << mask << " limit " << limit;
        } else if (what < 990) {
            ASSERT_EQ(log->clean(), result_ok);
            model.clean();
        } else {
            log = std::make_unique<event_log>();
            ASSERT_EQ(log->start_with_capacity(path_.c_str(), capacity), 0);
            model.restart();
        }
        ASSERT_EQ(log->count(), model.count()) << "step " << step;
        if (step % 500 == 0) {
            messages();
        }
    }
    TiXmlDocument saved;
    TiXmlElement root("Log");
    for (const auto& [name, text] : model.elements()) {
        TiXmlElement element(name.c_str());
        element.InsertEndChild(TiXmlText(text.c_str()));
        root.InsertEndChild(element);
    }
    saved.InsertEndChild(root);
    const std::string expected = directory_ + "/expected";
    ASSERT_TRUE(saved.SaveFile(expected.c_str()));
    ASSERT_TRUE(log->save());
    std::ostringstream text;
    text << std::ifstream(expected).rdbuf();
    EXPECT_EQ(file(), text.str());
}

INSTANTIATE_TEST_SUITE_P(Capacities, EventLogModel,
                         testing::Values(-512, -1, 0, 1, 2, 3, 4, 5, 8, 17),
                         [](const auto& capacity) {
                             return capacity.param < 0 ? std::string("Minus").append(
                                                             std::to_string(-capacity.param))
                                                       : std::to_string(capacity.param);
                         });

}  // namespace
}  // namespace veltrancord
