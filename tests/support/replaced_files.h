// For tests: files in a directory of their own, and system calls that record themselves and fail
// where a test says so.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "leaf/file_replacer.h"

namespace veltrancord {

// What the system calls interposed in file_replacer_fault_test.cpp do.
struct fault_plan {
    bool recording = false;
    std::vector<std::string> calls;
    std::string fail_call;
    int fail_error = 0;
    int skip = 0;       // calls of that name that pass before the first failure
    int failures = -1;  // how many times it fails; -1: for ever
    std::size_t longest_write = SIZE_MAX;
    bool foreign_owner = false;  // files that are looked at by name seem to be somebody else's
};
inline fault_plan g_plan;

class FileReplacer : public ::testing::Test {
  protected:
    void SetUp() override {
        g_plan = {};
        std::string name =
            (std::filesystem::temp_directory_path() / "file_replacer-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir_ = name;
        umask(022);
    }
    void TearDown() override {
        g_plan = {};
        std::filesystem::remove_all(dir_);
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    void put(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    std::string get(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
            found.push_back(entry.path().filename().string());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    mode_t mode(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(stat(path(name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    static void plan_failure(const char* call, int error, int failures = -1, int skip = 0) {
        g_plan.fail_call = call;
        g_plan.fail_error = error;
        g_plan.failures = failures;
        g_plan.skip = skip;
        g_plan.recording = true;
    }

    // Replaces with what is printed caught; the plan ends with the call.
    int32_t replace(const std::string& name, std::string_view content) {
        ::testing::internal::CaptureStderr();
        const int32_t result = replace_file(path(name).c_str(), content);
        g_plan.recording = false;
        printed_ = ::testing::internal::GetCapturedStderr();
        return result;
    }

    std::string line(const std::string& name, int error) const {
        return "replace_file " + path(name) + " error : " + strerror(error) + "\n";
    }

    std::filesystem::path dir_;
    std::string printed_;
};

}  // namespace veltrancord
