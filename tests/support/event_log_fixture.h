// A log in a directory of its own, for tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "eventlog/event_log.h"
#include "leaf/bounded_text.h"
#include "leaf/termination.h"

namespace veltrancord::test {

inline log_record event(int32_t type, int32_t first = 1, const std::string& detail = "d",
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

}  // namespace veltrancord::test
